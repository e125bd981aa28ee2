// Whether a request that was built is whole, so that it may be sent.
//
// Threads: no state.
#pragma once

#include "client/client_request.h"
#include "common/export.h"

namespace OstrandService {

// 0; the fault of the request, if it has one; CLIENT_ERR_REQUEST for a command that no application
// sends; CLIENT_ERR_KEY for a record command without key, or with an empty key field, wherever a
// key can stand: in the head, in each record of a batch, in each entry of a TTL command.
OSTRAND_API int CheckComplete(const ClientRequest& request);

}  // namespace OstrandService
