// What must hold of a router's lists, records and ring whenever none of its operations is running.
#pragma once

#include <string>
#include <vector>

#include "fakes/scripted_connector_mgr.h"
#include "service_api/ostrand_router.h"

namespace OstrandFakes {

// The invariants that do not hold, each in a sentence; none when all is well.
//
//  1. A url stands once in a list, ends in a NUL and is not empty.
//  2. A url in the removing list is in no other list.
//  3. A url in both using and preparing list has the same record there; no record has two urls.
//  4. No ring slot, counted or not, points at a record that no list holds. The counted ones are in
//     strictly ascending order.
//  5. Each record belongs to this router and has a live connector of its url; each live connector
//     of the manager belongs to one record.
//  6. Each list counts its elements rightly and is within its capacity.
//
// They hold after every FlushRoute and OnUpdate on lists that only those two filled with a logger
// set. REQUIRES: `mgr` serves this router alone.
std::vector<std::string> BrokenInvariants(OstrandService::OstrandRouter& router,
                                          const ScriptedConnectorMgr& mgr);

}  // namespace OstrandFakes
