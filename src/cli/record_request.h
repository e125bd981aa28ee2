// Requests on one record, made of fields, and what became of them.
//
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/connection.h"
#include "cli/fields.h"
#include "client/client_request.h"
#include "client/client_response.h"

namespace OstrandCli {

// Begins a request and fills it; of `values` a get takes the names alone. 0, or the request's
// fault.
int FillRequest(OstrandService::ClientRequest& request, uint32_t cmd, const Connection& connection,
                const std::vector<Field>& keys, const std::vector<Field>& values);

// "-7949 (server: there is no such record)".
std::string CodeWithText(int code);

// Sends a request and waits for its answer. 0; a code of the client; the answer's result.
int CallOnce(OstrandService::PollingClient& client, OstrandService::ClientRequest& request,
             OstrandService::ClientResponse& response);

// Tells the user that a command failed: a sentence on standard error and, for a program,
// {"result":...,"text":...} on standard output. kExitFailure.
int ReportFailure(const std::string& command, int code, bool is_json);

// Fields from the words of a command line. False: `error` has a sentence, also for a field that is
// there twice.
bool ParseFields(const std::vector<std::string>& words, std::vector<Field>& fields,
                 std::string& error);

}  // namespace OstrandCli
