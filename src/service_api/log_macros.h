// One macro a level: each writes one line of the router, or nothing without a logger.
//
// module_id and function are the speaker's: function is the unqualified name of the operation, also
// in a step split off from it. The source unit is the router's, in whichever of its files the line
// stands.
#pragma once

#include "common/logger.h"

#define OSTRAND_LOG(logger, level, module_id, source_unit, function, ...)                   \
  do {                                                                                      \
    OstrandCommon::Logger* const ostrand_log_logger = (logger);                             \
    if (ostrand_log_logger != nullptr) {                                                    \
      ostrand_log_logger->Log((level), 0, (module_id), (source_unit), __LINE__, (function), \
                              __VA_ARGS__);                                                 \
    }                                                                                       \
  } while (false)

#define OSTRAND_ROUTER_LOG(logger, level, module_id, function, ...)                                \
  OSTRAND_LOG(logger, OstrandCommon::level, module_id, "src/service_api/ostrand_router", function, \
              __VA_ARGS__)

#define ROUTER_LOG_CRIT(logger, module_id, function, ...) \
  OSTRAND_ROUTER_LOG(logger, OSTRAND_LOG_LEVEL_CRIT, module_id, function, __VA_ARGS__)
#define ROUTER_LOG_ERROR(logger, module_id, function, ...) \
  OSTRAND_ROUTER_LOG(logger, OSTRAND_LOG_LEVEL_ERROR, module_id, function, __VA_ARGS__)
#define ROUTER_LOG_WARN(logger, module_id, function, ...) \
  OSTRAND_ROUTER_LOG(logger, OSTRAND_LOG_LEVEL_WARN, module_id, function, __VA_ARGS__)
#define ROUTER_LOG_INFO(logger, module_id, function, ...) \
  OSTRAND_ROUTER_LOG(logger, OSTRAND_LOG_LEVEL_INFO, module_id, function, __VA_ARGS__)
#define ROUTER_LOG_DEBUG(logger, module_id, function, ...) \
  OSTRAND_ROUTER_LOG(logger, OSTRAND_LOG_LEVEL_DEBUG, module_id, function, __VA_ARGS__)
#define ROUTER_LOG_TRACE(logger, module_id, function, ...) \
  OSTRAND_ROUTER_LOG(logger, OSTRAND_LOG_LEVEL_TRACE, module_id, function, __VA_ARGS__)
