// A directory's answer, written row by row.
//
//   router.FlushRoute(DirectoryAnswer({"tcp://10.0.0.1:1001", "tcp://10.0.0.2:1002"}).get());
//
// Rows that were not given, and everything behind the rows, are full of '~': whoever reads them
// shows it. The record stands alone on the heap, so that a read behind it shows as well.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "protocol/ostrand_dir.h"

namespace OstrandFakes {

class DirectoryAnswer {
 public:
  // A good answer with these urls and the ids "id0", "id1", ...; the count is told as it is, rows
  // behind the 200th are left out.
  explicit DirectoryAnswer(const std::vector<std::string>& urls);

  // Texts that fill their row have no NUL; longer ones fault.
  void SetRow(int row, const std::string& url, const std::string& id);
  void SetCmd(uint16_t cmd) { m_pkg->stHead.wCmd = cmd; }
  void SetResult(int32_t result) { m_pkg->stBody.stResGetTablesAndAccess.iResult = result; }
  void SetCount(int32_t count) { m_pkg->stBody.stResGetTablesAndAccess.iAccessCount = count; }

  const ostrand_protocol_dir::tagOStrdirCSPkg* get() const { return m_pkg.get(); }
  const ostrand_protocol_dir::tagResGetTablesAndAccess& route() const {
    return m_pkg->stBody.stResGetTablesAndAccess;
  }

 private:
  std::unique_ptr<ostrand_protocol_dir::tagOStrdirCSPkg> m_pkg;
};

}  // namespace OstrandFakes
