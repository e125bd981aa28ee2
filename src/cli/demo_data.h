// The demo's table of packages: what is written, what a read has to bring back.
//
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <string>

#include "cli/package_records.h"
#include "client/client_request.h"
#include "client/client_response.h"
#include "vex/vex_schema.h"

namespace OstrandCli {

constexpr int32_t kDemoZone = 1;
constexpr char kDemoTable[] = "package";

// Key: package, version. Values: label, which is the key once more, so that an answer tells which
// record it brings; section, size, description; revision, which counts the record's writes.
VexMeta DemoSchema();

// Each begins a request about a record; false: it does not fit into one.
bool BuildReplace(OstrandService::ClientRequest& request, const PackageRecord& record,
                  uint32_t revision);
bool BuildUpdate(OstrandService::ClientRequest& request, const PackageRecord& record,
                 uint32_t revision);
bool BuildGet(OstrandService::ClientRequest& request, const PackageRecord& record);

// Compares a read's answer field by field. "": it is the record; else what is different, in words.
std::string Difference(OstrandService::ClientResponse& response, const PackageRecord& record,
                       uint32_t revision);

}  // namespace OstrandCli
