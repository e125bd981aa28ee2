// Any bytes as a frame: unpacking answers a code or a sound package, and checking without copying
// answers the same code. A sound package renders as
// text, its records can be walked, it packs again, and what it packs to is read as the same
// package: packed once more it gives the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "protocol/codec.h"

namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the whole program is about it

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

int Unpack(OStrandPkg& pkg, const char* data, size_t len) {
  return UnpackWholeCsPkgMaybeDecompress(pkg, nullptr, 0, data, len, nullptr, nullptr, 0);
}

size_t Pack(const OStrandPkg& pkg, std::vector<char>& frame) {
  size_t len = frame.size();
  Require(PackWholeCsPkgMaybeCompress(frame.data(), len, nullptr, 0, pkg, pkg.stHead.wVersion,
                                      nullptr) == 0);
  return len;
}

// Reads every byte of every field.
size_t SumOfFields(FieldReader fields) {
  size_t sum = 0;
  FieldView field;
  while (fields.Next(field)) {
    Require(field.name.data()[field.name.size()] == '\0');
    for (const char byte : field.value) {
      sum += static_cast<unsigned char>(byte);
    }
  }
  return sum;
}

void WalkRecords(const OStrandRecords& records) {
  RecordReader reader(records);
  RecordView record;
  uint32_t num = 0;
  size_t sum = 0;
  while (reader.Next(record)) {
    ++num;
    sum += SumOfFields(record.keys) + SumOfFields(record.values);
  }
  Require(num == records.dwRecordNum);
  Require(sum <= size_t{255} * records.dwRecordsLen);
}

void WalkBody(const OStrandPkg& pkg) {
  switch (BodyKindOfCmd(pkg.stHead.dwCmd)) {
    case BodyKind::kRecord:
    case BodyKind::kRecords: WalkRecords(pkg.stBody.stRecords); return;
    case BodyKind::kListGetAllRes: WalkRecords(pkg.stBody.stListGetAllRes.stRecords); return;
    case BodyKind::kGetByPartKeyRes: WalkRecords(pkg.stBody.stGetByPartKeyRes.stRecords); return;
    default: return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::unique_ptr<OStrandPkg> pkg = NewOStrandPkg();
  static const std::unique_ptr<OStrandPkg> checked = NewOStrandPkg();
  static std::vector<char> once(OSTRAND_MAX_FRAME_LEN);
  static std::vector<char> twice(OSTRAND_MAX_FRAME_LEN);
  const int ret = Unpack(*pkg, reinterpret_cast<const char*>(data), size);
  Require(UnpackHeadCheckBody(*checked, reinterpret_cast<const char*>(data), size) == ret);
  if (ret != 0) {
    Require(CodecErrorText(ret) != nullptr);
    Require(pkg->stHead.dwCmd == 0);
    return 0;
  }
  char text[4096];
  pkg->visualize(text, sizeof(text), nullptr, 0, '\n');
  WalkBody(*pkg);
  const size_t once_len = Pack(*pkg, once);
  Require(Unpack(*pkg, once.data(), once_len) == 0);
  const size_t twice_len = Pack(*pkg, twice);
  Require(std::string_view(once.data(), once_len) == std::string_view(twice.data(), twice_len));
  return 0;
}
