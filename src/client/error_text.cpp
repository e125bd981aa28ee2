#include "client/error_text.h"

#include <iterator>

#include "client/client_errors.h"
#include "client/client_response.h"
#include "client/runtime_errors.h"
#include "client/tcp_connector.h"
#include "protocol/codec_errors.h"
#include "protocol/ostrand_dir_codec.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_service_response.h"
#include "service_api/register_table_info.h"
#include "vex/vex_codes.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;   // NOLINT: codes
using namespace ostrand_protocol_dir;  // NOLINT: codes

constexpr ErrorOrigin kLibrary = ErrorOrigin::kLibrary;
constexpr ErrorOrigin kDirectory = ErrorOrigin::kDirectory;
constexpr ErrorOrigin kProxy = ErrorOrigin::kProxy;
constexpr ErrorOrigin kServer = ErrorOrigin::kServer;

constexpr int kFirstComparisonCode = kVexNoLocalMeta;

// clang-format off
constexpr ErrorEntry kErrors[] = {
    // Plain codes.
    {-1, kLibrary, "-1", "failed: not connected, or something that is needed for it is missing"},
    {-2, kLibrary, "-2", "failed: no logger, no table name, or nothing to sign up with"},
    {-3, kLibrary, "-3", "failed: table name too long, or an empty user buffer"},
    {-5, kLibrary, "-5", "failed: command unknown, or its answer could not be sent"},
    {-6, kLibrary, "-6", "failed: a package of the router's own could not be queued"},

    // The router.
    {ROUTER_ERR_FAILED, kLibrary, "ROUTER_ERR_FAILED", "failed; the log tells why"},
    {ROUTER_ERR_ARGUMENT, kLibrary, "ROUTER_ERR_ARGUMENT", "an argument is null or out of range"},
    {-2323, kLibrary, "INNER_ERR_PACK", "a package of the router's own could not be packed"},
    {ROUTER_ERR_NOT_INITIALISED, kLibrary, "ROUTER_ERR_NOT_INITIALISED",
     "router not initialised, or initialised twice, or no such table"},
    {ROUTER_ERR_ALLOCATION, kLibrary, "ROUTER_ERR_ALLOCATION", "out of memory"},
    {ROUTER_ERR_SEND_BUFFER_FULL, kLibrary, "ROUTER_ERR_SEND_BUFFER_FULL",
     "the proxy's send buffer is full: receive answers and try again"},
    {TcpConnector::kErrHeadUndeliverable, kLibrary, "TcpConnector::kErrHeadUndeliverable",
     "a received frame cannot be delivered and was dropped"},
    {ROUTER_ERR_NO_ROUTE, kLibrary, "ROUTER_ERR_NO_ROUTE", "no proxy can take the request"},
    {OstrandServiceResponse::kErrBadFrameHead, kLibrary, "OstrandServiceResponse::kErrBadFrameHead",
     "what was received is no frame; the connection is closed"},
    {-18195, kLibrary, "-18195", "a proxy cannot be connected to"},
    {RegisterTableInfo::kCheckFailed, kLibrary, "RegisterTableInfo::kCheckFailed",
     "the table's schema does not fit the server's, or could not be compared"},
    {-18963, kLibrary, "-18963", "a package of the answer is missing or came out of order"},
    {ClientResponse::kResultTimeOut, kLibrary, "ClientResponse::kResultTimeOut",
     "no answer came in time; whether the request was carried out is not known"},

    // The client.
#define OSTRAND_ENTRY(name, number, text) \
    {CLIENT_ERR_##name, kLibrary, "CLIENT_ERR_" #name, text},
    OSTRAND_CLIENT_ERRORS(OSTRAND_ENTRY)
#undef OSTRAND_ENTRY

#define OSTRAND_ENTRY(name, number, text) \
    {RUNTIME_ERR_##name, kLibrary, "RUNTIME_ERR_" #name, text},
    OSTRAND_RUNTIME_ERRORS(OSTRAND_ENTRY)
#undef OSTRAND_ENTRY

    // Packages.
#define OSTRAND_ENTRY(name, number, text) \
    {OSTRAND_CODEC_ERR_##name, ErrorOrigin::kFrame, "OSTRAND_CODEC_ERR_" #name, text},
    OSTRAND_CODEC_ERRORS(OSTRAND_ENTRY)
#undef OSTRAND_ENTRY

    // The directory's packages.
    {OSTRDIR_ERR_ARGUMENT, kDirectory, "OSTRDIR_ERR_ARGUMENT",
     "directory: null pointer or an output that is too small"},
    {OSTRDIR_ERR_MAGIC, kDirectory, "OSTRDIR_ERR_MAGIC", "directory: frame with a wrong magic"},
    {OSTRDIR_ERR_HEAD_LEN, kDirectory, "OSTRDIR_ERR_HEAD_LEN",
     "directory: head length below its fields or above the frame"},
    {OSTRDIR_ERR_FRAME_LEN, kDirectory, "OSTRDIR_ERR_FRAME_LEN",
     "directory: lengths do not add up to the frame, or it is too long"},
    {OSTRDIR_ERR_COMMAND, kDirectory, "OSTRDIR_ERR_COMMAND", "directory: another command"},

    // Comparing schemas. The library's other codes (loading an image) stay inside it.
#define OSTRAND_ENTRY(name, number, text) {name, ErrorOrigin::kSchema, #name, text},
    VEX_CODES(OSTRAND_ENTRY)
#undef OSTRAND_ENTRY

    // Results of proxies.
    {-3089, kProxy, "OstrroxyRouteMsgErr", "proxy: the request could not be routed to a server"},
    {-5393, kProxy, "OstrroxySendMsgErr", "proxy: the request could not be sent to a server"},
    {-6413, kProxy, "-6413", "proxy: the client library is too old for it"},
    {-6669, kProxy, "-6669", "proxy: the client library is too new for it"},
    {-6929, kProxy, "OstrroxyLackSomeFields", "proxy: fields are missing in the request"},
    {-7185, kProxy, "OstrroxyFailedToFindNodeErr", "proxy: no server is responsible for the key"},
    {-8209, kProxy, "OstrroxySwiftErr", "proxy: the data are being transferred"},
    {-9233, kProxy, "OstrroxyRequestAccessCtrlErr", "proxy: refused by access control"},

    // Results of servers.
    {-269, kServer, "OstrsvrRouteMsgErr", "server: the request came to the wrong server"},
    {-1293, kServer, "OstrsvrRecordExistErr", "server: the record exists already"},
    {-1549, kServer, "OstrsvrInvalidFielNameErr", "server: no field of this name"},
    {-2061, kServer, "OstrsvrInvalidFieldTypeErr", "server: a field has another type"},
    {-3597, kServer, "OstrsvrInvalidOperationErr", "server: not possible with this table or field"},
    {-4109, kServer, "OstrsvrInvalidIndexErr", "server: no list element of this index"},
    {-6157, kServer, "OstrsvrListFullErr", "server: the list is full"},
    {-7949, kServer, "-7949", "server: no record with this key"},
    {-8205, kServer, "OstrsvrSystemErr", "server: system error"},
    {-9485, kServer, "-9485", "server: the record has another version than the request names"},
    {-9741, kServer, "-9741", "server: the record is too large for an answer"},
    {-11277, kServer, "OstrsvrCommandMisMatchErr", "server: the command does not fit the table"},
    {-12301, kServer, "OstrsvrOutUserRangeErr", "server: outside of what the user may touch"},
};
// clang-format on

// The table without the schema library's own codes.
constexpr bool IsListed(const ErrorEntry& entry) {
  return entry.origin != ErrorOrigin::kSchema || entry.code <= kFirstComparisonCode;
}

constexpr size_t CountListed() {
  size_t count = 0;
  for (const ErrorEntry& entry : kErrors) {
    count += IsListed(entry) ? 1 : 0;
  }
  return count;
}

struct Listed {
  ErrorEntry entries[CountListed()];
};

constexpr Listed TakeListed() {
  Listed listed{};
  size_t count = 0;
  for (const ErrorEntry& entry : kErrors) {
    if (IsListed(entry)) {
      listed.entries[count++] = entry;
    }
  }
  return listed;
}

constexpr Listed kListed = TakeListed();

}  // namespace

const char* ErrorText(int code) {
  if (code == 0) {
    return "success";
  }
  for (const ErrorEntry& entry : kListed.entries) {
    if (entry.code == code) {
      return entry.text;
    }
  }
  return "unknown error";
}

const ErrorEntry* AllErrors(size_t& count) {
  count = std::size(kListed.entries);
  return kListed.entries;
}

}  // namespace OstrandService
