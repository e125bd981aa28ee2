// What packing and unpacking cost, beside copying the same bytes.
//
// BM_Copy is memcpy of the packed frame into a buffer: the least that a codec could do.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "protocol/codec.h"

namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the whole program is about it

constexpr char kTableName[] = "players";
constexpr char kKeyName[] = "id";
constexpr size_t kUserBuffLen = 14;  // as a router's context
constexpr size_t kKeyLen = 16;
constexpr size_t kValueLen = 100;

OStrandPkg& Scratch() {
  static const std::unique_ptr<OStrandPkg> pkg = NewOStrandPkg();
  return *pkg;
}

void BeginPackage(OStrandPkg& pkg, OStrandApiCmds cmd) {
  pkg.stHead.construct();
  pkg.stHead.dwCmd = cmd;
  pkg.stBody.construct(cmd);
}

void SetTableAndKey(OStrandPkg& pkg) {
  std::memcpy(pkg.stHead.stRouterInfo.szTableName, kTableName, sizeof(kTableName));
  pkg.stHead.stRouterInfo.dwTableNameLen = sizeof(kTableName);
  std::memset(pkg.stHead.szUserBuff, 7, kUserBuffLen);
  pkg.stHead.dwUserBuffLen = kUserBuffLen;
  OStrandKeyField& field = pkg.stHead.stKeyInfo.astFields[0];
  std::memcpy(field.szFieldName, kKeyName, sizeof(kKeyName));
  std::memset(field.szFieldBuff, 'k', kKeyLen);
  field.dwFieldLen = kKeyLen;
  pkg.stHead.stKeyInfo.dwFieldNum = 1;
}

void FillHeartBeat(OStrandPkg& pkg) {
  BeginPackage(pkg, OSTRAND_API_HEART_BEAT_REQ);
  pkg.stBody.stHeartBeatReq.llApiTimeUs = 1700000000000000;
}

void FillGet(OStrandPkg& pkg) {
  BeginPackage(pkg, OSTRAND_API_GET_REQ);
  SetTableAndKey(pkg);
}

void FillInsert(OStrandPkg& pkg) {
  BeginPackage(pkg, OSTRAND_API_INSERT_REQ);
  SetTableAndKey(pkg);
  RecordWriter writer(pkg.stBody.stRecords);
  writer.BeginRecord();
  writer.AddValueField("value", std::string(kValueLen, 'v'));
}

using Fill = void (*)(OStrandPkg&);

std::vector<char> PackedFrame(Fill fill) {
  fill(Scratch());
  std::vector<char> frame(4096);
  size_t len = frame.size();
  PackWholeCsPkgMaybeCompress(frame.data(), len, nullptr, 0, Scratch(), 127, nullptr);
  frame.resize(len);
  return frame;
}

void BM_Copy(benchmark::State& state, Fill fill) {
  const std::vector<char> frame = PackedFrame(fill);
  std::vector<char> buffer(4096);
  size_t len = frame.size();
  for (auto _ : state) {
    benchmark::DoNotOptimize(len);  // or the compiler copies a known number of bytes
    std::memcpy(buffer.data(), frame.data(), len);
    benchmark::ClobberMemory();
  }
  state.counters["frame_bytes"] = static_cast<double>(frame.size());
}

void BM_Pack(benchmark::State& state, Fill fill) {
  fill(Scratch());
  std::vector<char> buffer(4096);
  for (auto _ : state) {
    size_t len = buffer.size();
    const int ret =
        PackWholeCsPkgMaybeCompress(buffer.data(), len, nullptr, 0, Scratch(), 127, nullptr);
    if (ret != 0) {
      state.SkipWithError("pack failed");
    }
    benchmark::ClobberMemory();
  }
}

void BM_Unpack(benchmark::State& state, Fill fill) {
  const std::vector<char> frame = PackedFrame(fill);
  for (auto _ : state) {
    const int ret = UnpackWholeCsPkgMaybeDecompress(Scratch(), nullptr, 0, frame.data(),
                                                    frame.size(), nullptr, nullptr, 0);
    if (ret != 0) {
      state.SkipWithError("unpack failed");
    }
    benchmark::ClobberMemory();
  }
}

#define OSTRAND_BENCH_FRAME(name, fill)   \
  BENCHMARK_CAPTURE(BM_Copy, name, fill); \
  BENCHMARK_CAPTURE(BM_Pack, name, fill); \
  BENCHMARK_CAPTURE(BM_Unpack, name, fill)

OSTRAND_BENCH_FRAME(heartbeat, FillHeartBeat);
OSTRAND_BENCH_FRAME(get_16_byte_key, FillGet);
OSTRAND_BENCH_FRAME(insert_100_bytes, FillInsert);

}  // namespace
