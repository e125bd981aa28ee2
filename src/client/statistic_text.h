// A statistics record as text, made from the lists of counters.
#pragma once

#include <string>

#include "service_api/service_api_statistic.h"

namespace OstrandService {

// Appends one line "\t<name>:<value> <unit>" for each overall counter, one line for each measured
// stage of the delays, one for each table ("\ttable <name> <counter>:<value> ...") and, with the
// measured stages behind it, one for each access ("\taccess <url> <id> <counter>:<value> ...").
// Application's thread.
void AppendStatistic(std::string& text, const tagServiceApiStatistic& statistic);

}  // namespace OstrandService
