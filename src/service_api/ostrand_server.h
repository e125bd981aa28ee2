// What the router asks of the service that owns it.
//
// The service owns the network thread, the router's collaborators and the application's registered
// tables; it drives the router and receives its reports.
//
// Ownership: the application owns the service; the router borrows it, and it outlives the router.
// Threads: each operation says on which thread the router calls it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "common/export.h"
#include "common/logger.h"
#include "common/mutex.h"
#include "service_api/register_table_info.h"

namespace ostrand_protocol_cs {
struct OStrandPkg;
}

namespace OstrandService {

// The service's network thread, as the router stops and restarts it.
class OSTRAND_API NetThread {
 public:
  virtual ~NetThread() = default;

  // Returns once no receive callback runs and none will start until the matching Resume. Calls are
  // counted and nest. Not called while holding a lock.
  virtual void Pause() = 0;
  virtual void Resume() = 0;
};

// Holds a NetThread paused from construction to the end of its scope.
class ScopedPause {
 public:
  explicit ScopedPause(NetThread& thread) : m_thread(thread) { m_thread.Pause(); }
  ~ScopedPause() { m_thread.Resume(); }
  ScopedPause(const ScopedPause&) = delete;
  ScopedPause& operator=(const ScopedPause&) = delete;

 private:
  NetThread& m_thread;
};

class OSTRAND_API OstrandServer {
 public:
  // Table name to what is known of the table; zone id to its tables.
  using RegisterTables = std::map<std::string, RegisterTableInfo, std::less<>>;
  using RegisterZones = std::map<int, RegisterTables>;

  static constexpr size_t kLastErrorTextSize = 256;

  OstrandServer() = default;
  virtual ~OstrandServer() = default;
  OstrandServer(const OstrandServer&) = delete;
  OstrandServer& operator=(const OstrandServer&) = delete;

  // The logger of the receive callback. Network thread. Null: the callback refuses its frames.
  virtual OstrandCommon::Logger* GetLogger() = 0;

  // Hands out the one scratch buffer (`size` in bytes) and the one package record that inner
  // requests are built in and inbound frames decoded into; the same pair on every call, null on
  // failure. Called on the network thread, and on the application's while the network thread
  // stands.
  virtual void NetThreadGetBufPkg(char*& buffer, size_t& size,
                                  ostrand_protocol_cs::OStrandPkg*& pkg) = 0;

  // Version text of the client library, printed when a proxy refuses it. Network thread.
  virtual const char* GetApiVersion() = 0;

  // Schema version of a table for the package head. table_name may be null (a package of no table).
  // Both threads.
  virtual int GetTableMetaVersion(int zone_id, const char* table_name) = 0;

  // Told the code of a package that could not be decoded. Both threads.
  virtual void SetDirAlarmErrorCode(int code) = 0;

  // 0 when the value fields of both schemas agree, else a code that names the difference. Called
  // with the table map's lock held for reading: it must not take that lock.
  virtual int CompareEntryValueField(LPVEXMETA local, LPVEXMETA server) = 0;

  // Receives the ring's fingerprint line after each ring write; the result is ignored. Called with
  // the ring's mutex held: it must not call back into the router.
  virtual int ReportDirHashCircleStat(int zone_id, std::string& line) = 0;

  // The network thread, for the router to stop it. Application's thread.
  virtual NetThread& GetNetThread() = 0;

  // The last error that a user can ask for: a code (0: none) and a text. One pair, written by the
  // router when a proxy cannot be reached, refuses the sign-up or holds another schema. Each
  // operation locks inside and may be called from any thread.
  void SetLastError(int32_t code) {
    OstrandCommon::ScopedLock lock(m_last_error_mutex);
    m_last_error_code = code;
  }
  // text: cut to 255 characters; null is the empty text.
  void SetLastError(int32_t code, const char* text);
  // Copies the pair out in one step.
  void GetLastError(int32_t& code, std::string& text);

  // The same pair under the names it has where sign-up refusals are read.
  int32_t auth_fail_code();
  std::string auth_fail_text();

  // Guards m_register_table. The router's schema check holds it for reading while it looks a table
  // up, writes that table's result fields and, for a zone nobody registered, inserts an empty map;
  // everybody else takes it for writing, also to read.
  OstrandCommon::RwLock m_register_table_lock;
  RegisterZones m_register_table;

  // Non-null selects local-buffer mode: the application's user buffers stay in the in-flight table
  // and only the routing context travels. Set before requests are sent, then constant.
  void* m_local_buffer = nullptr;

 private:
  OstrandCommon::Mutex m_last_error_mutex;
  int32_t m_last_error_code OSTRAND_GUARDED_BY(m_last_error_mutex) = 0;
  char m_last_error_text[kLastErrorTextSize] OSTRAND_GUARDED_BY(m_last_error_mutex) = {};
};

}  // namespace OstrandService
