// A development fleet: a directory and proxies on loopback over one table store in memory, inside
// the program that uses it.
//
// It is for tests and for trying things out, not for serving anybody: what it stores is gone with
// it, and it misbehaves on demand. It speaks the protocol of docs/protocol.md; docs/fleet.md has
// the tables of its switches, result codes and limits.
//
//   OstrandFleet::Fleet fleet;                     // one proxy; or with options
//   if (fleet.Start() != 0) { ... fleet.Error() ... }
//   ... a client with fleet.DirectoryUrl() ...
//   OstrandFleet::ProxyFaults faults;
//   faults.delay_ms = 200;
//   fleet.SetFaults(0, faults);
//
// Ownership: owns all of it, its thread too. Threads: Start, Stop and the destructor on one thread,
// everything else on any; each operation takes effect before it returns. Functions that the fleet
// is given run on its own thread; they may call the fleet, and should be quick.
// Errors: codes; a proxy index that does not exist does nothing and gives -1 or an empty answer.
// Memory that runs out ends the program.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/export.h"
#include "fleet/fleet_codes.h"
#include "fleet/fleet_types.h"
#include "fleet/proxy_counters.h"
#include "fleet/proxy_faults.h"
#include "fleet/table_setup.h"

namespace OstrandFleet {

class FleetProxy;

struct FleetOptions {
  size_t proxies = 1;
  // Of the directory; the proxies have the ports behind it. 0: free ports, for all.
  uint16_t port = 0;
  std::vector<TableSetup> tables;
  // A table that no option names comes to be, without schema, when a client first names it.
  bool create_unknown_tables = false;
  StoreLimits store;
  size_t records_per_package = 100;      // of answers in several packages
  std::vector<Credentials> credentials;  // who may sign up; empty: everybody
  RequestLogLimits requests;
  ProxyOptions proxy;  // of every proxy
  // Table operations on single records are answered at the least possible cost, without store and
  // log: for benchmarks of clients.
  bool stand_in = false;
  size_t stand_in_value_len = 100;
  // A file whose routes and faults the fleet follows while it runs; "": none. Its format is in
  // fleet_file.h. While there is one, what it says replaces what SetRoute, SetFaults and
  // SetDirectoryFault said before.
  std::string fleet_file;
  // Told, in a line, what a user of the program should know: the file cannot be used.
  std::function<void(const std::string& line)> remark;
  uint32_t random_seed = 1;  // of garbage
};

class OSTRAND_API Fleet {
 public:
  explicit Fleet(FleetOptions options = FleetOptions());
  ~Fleet();  // stops
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  // Starts directory and proxies; all listen when it returns. 0, or -1 (Error says why), and then
  // nothing runs. After Stop the same ports are used again.
  int Start();
  // Closes everything. Store, counters, faults and recorded requests stay.
  void Stop();
  // Why the last operation that answered -1 failed.
  std::string Error();

  // "tcp://127.0.0.1:<port>"; "" before the first Start.
  std::string DirectoryUrl();
  // By proxy index.
  std::vector<std::string> ProxyUrls();
  std::string ProxyUrl(size_t proxy);
  size_t ProxyCount();

  // --- Proxies. Their ids are "p0", "p1" and so on. ---

  // One more proxy, which runs at once. Its index, or -1.
  int AddProxy();
  void SetFaults(size_t proxy, const ProxyFaults& faults);
  ProxyFaults Faults(size_t proxy);
  void CloseConnections(size_t proxy, CloseKind kind = CloseKind::kOrderly);
  // Sends each client a few bytes of a frame and closes then.
  void CloseInsideFrame(size_t proxy);
  // Sends each client of the proxy any bytes: answers that nobody asked for, a storm of notices.
  void SendBytes(size_t proxy, std::string_view bytes);
  // Begins the stop negotiation; the proxy is stopped when all clients allowed it.
  void AskToStop(size_t proxy);
  // Listener and connections are gone at once; the clients are not told.
  void Kill(size_t proxy);
  // Brings a proxy that is down or stopped back on its port. 0, or -1.
  int Restart(size_t proxy);
  ProxyState State(size_t proxy);
  ProxyCounters Counters(size_t proxy);

  // --- Directory. Until a route is set, every zone has all proxies but those that stopped by
  // negotiation. ---

  // The proxies of one zone, by address or with ids; none: the zone has no route of its own.
  void SetRoute(int32_t zone, const std::vector<std::string>& urls);
  void SetRoute(int32_t zone, const Route& route);
  // 0, or -1 when a directory that was absent does not get its port back.
  int SetDirectoryFault(DirectoryFault fault, int64_t value = 0);
  // Changes every answer before it is sent, in ways that no route can; null: none.
  void SetDirectoryEdit(DirectoryEdit edit);
  void SetConf(const ostrand_protocol_dir::tagConfData& conf);
  DirectoryCounters CountersOfDirectory();

  // --- Store. ---

  // Declares a table; one of this name is replaced with all that is in it. False for a schema that
  // is none, or too many tables.
  bool AddTable(const TableSetup& table);
  // What metadata requests of a table are answered, in place of what its schema says. False for an
  // unknown table.
  bool SetMetadata(int32_t zone, const std::string& table, const MetadataAnswer& answer);
  // False when there is no such record.
  bool FindRecord(int32_t zone, const std::string& table, const FieldList& key,
                  StoredRecord& record);
  // 0 for an unknown table.
  size_t CountRecords(int32_t zone, const std::string& table);

  // --- What came. ---

  // The requests that came last, oldest first, of all proxies.
  std::vector<RecordedRequest> Requests();
  void ClearRequests();
  void RecordRequests(bool is_on);

  // Returns true as soon as the condition holds, false when it does not within the time. It is
  // evaluated on the fleet's thread, whenever that has handled something: fit for conditions on
  // what came and was counted.
  bool WaitFor(int64_t timeout_ms, const std::function<bool()>& condition);

 private:
  class Impl;

  void OnProxy(size_t proxy, const std::function<void(FleetProxy&)>& work);

  const std::unique_ptr<Impl> m_impl;
};

}  // namespace OstrandFleet
