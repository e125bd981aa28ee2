#include "fakes/directory_answer.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "fakes/fault.h"

namespace OstrandFakes {

using namespace ostrand_protocol_dir;  // NOLINT: the records of the directory

namespace {

template <size_t N>
void SetText(char (&row)[N], const std::string& text) {
  if (text.size() > N) {
    Fault("a row of %zu bytes has no room for %s", N, text.c_str());
  }
  std::memset(row, 0, N);
  std::memcpy(row, text.data(), text.size());
}

}  // namespace

DirectoryAnswer::DirectoryAnswer(const std::vector<std::string>& urls)
    : m_pkg(std::make_unique<tagOStrdirCSPkg>()) {
  std::memset(static_cast<void*>(m_pkg.get()), '~', sizeof(*m_pkg));
  SetCmd(OSTRDIR_CS_CMD_GET_TABLES_AND_ACCESS_RES);
  SetResult(0);
  SetCount(static_cast<int32_t>(urls.size()));
  const int rows = static_cast<int>(std::min(urls.size(), static_cast<size_t>(MAX_SERVER_COUNT)));
  for (int row = 0; row < rows; ++row) {
    SetRow(row, urls[static_cast<size_t>(row)], "id" + std::to_string(row));
  }
}

void DirectoryAnswer::SetRow(int row, const std::string& url, const std::string& id) {
  tagResGetTablesAndAccess& route = m_pkg->stBody.stResGetTablesAndAccess;
  SetText(route.aszAccessUrlList[row], url);
  SetText(route.aszAccessIdList[row], id);
}

}  // namespace OstrandFakes
