#include "unit/protocol/package_kit.h"

#include <algorithm>
#include <cctype>

namespace ostrand_protocol_cs {

std::string FromHex(std::string_view hex) {
  std::string digits;
  for (const char c : hex) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
      digits += c;
    }
  }
  std::string bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

std::string ToHex(std::string_view bytes) {
  std::string hex;
  for (const char byte : bytes) {
    char digits[3];
    snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned char>(byte));
    hex += digits;
  }
  return hex;
}

std::vector<uint32_t> AllCommands() {
  return {
#define OSTRAND_BOTH(name, code, request_body, response_body) (code), (code) + 1,
      OSTRAND_API_COMMANDS(OSTRAND_BOTH)
#undef OSTRAND_BOTH
  };
}

std::unique_ptr<OStrandPkg> NewPackage(uint32_t cmd) {
  auto pkg = NewOStrandPkg();
  pkg->stHead.dwCmd = cmd;
  EXPECT_EQ(pkg->stBody.construct(cmd), 0);
  return pkg;
}

std::string Pack(const OStrandPkg& pkg, int* ret, int version) {
  static std::string buffer(OSTRAND_MAX_FRAME_LEN, '\0');
  size_t len = buffer.size();
  const int pack_ret =
      PackWholeCsPkgMaybeCompress(buffer.data(), len, nullptr, 0, pkg, version, nullptr);
  if (ret != nullptr) {
    *ret = pack_ret;
  } else {
    EXPECT_EQ(pack_ret, 0) << CodecErrorText(pack_ret);
  }
  return pack_ret == 0 ? buffer.substr(0, len) : std::string();
}

int Unpack(OStrandPkg& pkg, std::string_view frame) {
  const std::unique_ptr<char[]> exact(new char[frame.size()]);
  std::copy(frame.begin(), frame.end(), exact.get());
  return UnpackWholeCsPkgMaybeDecompress(pkg, nullptr, 0, exact.get(), frame.size(), nullptr,
                                         nullptr, 0);
}

void SetTableName(OStrandPkgHead& head, std::string_view name) {
  SetText(head.stRouterInfo.szTableName, name);
  head.stRouterInfo.dwTableNameLen = name.empty() ? 0 : static_cast<uint32_t>(name.size() + 1);
}

void SetUserBuff(OStrandPkgHead& head, std::string_view bytes) {
  ASSERT_LE(bytes.size(), sizeof(head.szUserBuff));
  std::memcpy(head.szUserBuff, bytes.data(), bytes.size());
  head.dwUserBuffLen = static_cast<uint32_t>(bytes.size());
}

void AddKeyField(OStrandKeySet& keys, std::string_view name, std::string_view value) {
  ASSERT_LT(keys.dwFieldNum, OSTRAND_MAX_KEY_FIELD_NUM);
  OStrandKeyField& field = keys.astFields[keys.dwFieldNum++];
  SetText(field.szFieldName, name);
  ASSERT_LE(value.size(), sizeof(field.szFieldBuff));
  std::memcpy(field.szFieldBuff, value.data(), value.size());
  field.dwFieldLen = static_cast<uint32_t>(value.size());
}

}  // namespace ostrand_protocol_cs
