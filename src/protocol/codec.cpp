#include "protocol/codec.h"

#include <algorithm>

#include "protocol/codec_body.h"
#include "protocol/codec_head.h"

namespace ostrand_protocol_cs {
namespace {

int CheckCompression(const OStrandPkgHead& head) {
  const bool plain = head.bReqBodyCompressType == 0 && head.bRespBodyCompressType == 0;
  return plain ? 0 : OSTRAND_CODEC_ERR_COMPRESSION;
}

// Checks what every frame begins with and finds where its head ends.
int CheckFrame(const char* data, size_t len, size_t& head_len) {
  if (data == nullptr) {
    return OSTRAND_CODEC_ERR_ARGUMENT;
  }
  if (len < OSTRAND_FIXED_HEAD_LEN) {
    return OSTRAND_CODEC_ERR_FRAME_SHORT;
  }
  if (LoadBigEndian<uint16_t>(data) != OSTRAND_PKG_MAGIC) {
    return OSTRAND_CODEC_ERR_MAGIC;
  }
  const auto stated_head_len = LoadBigEndian<uint32_t>(data + kHeadLenOffset);
  if (stated_head_len < OSTRAND_FIXED_HEAD_LEN) {
    return OSTRAND_CODEC_ERR_HEAD_LEN;
  }
  const auto stated_body_len = LoadBigEndian<uint32_t>(data + kBodyLenOffset);
  if (uint64_t{stated_head_len} + stated_body_len != len) {
    return OSTRAND_CODEC_ERR_FRAME_LEN;
  }
  head_len = stated_head_len;
  return 0;
}

// An answer that tells of a failure may come without body; it then is the constructed one.
bool MayLackBody(const OStrandPkgHead& head) {
  const bool is_response = head.dwCmd % 2 == 0;
  return is_response && head.iResult != 0;
}

int UnpackFrame(OStrandPkg& pkg, const char* data, size_t len) {
  size_t head_len = 0;
  if (const int ret = CheckFrame(data, len, head_len)) {
    return ret;
  }
  ByteReader head_in(data, head_len, OSTRAND_CODEC_ERR_HEAD_TRUNCATED);
  UnpackHead(head_in, pkg.stHead);
  if (!head_in.ok()) {
    return head_in.error();
  }
  if (const int ret = CheckCompression(pkg.stHead)) {
    return ret;
  }
  if (head_len == len && MayLackBody(pkg.stHead)) {
    return pkg.stBody.construct(pkg.stHead.dwCmd);
  }
  ByteReader body_in(data + head_len, len - head_len, OSTRAND_CODEC_ERR_BODY_TRUNCATED);
  UnpackBody(body_in, pkg.stBody, pkg.stHead.dwCmd);
  const bool newer_fields_may_follow = pkg.stHead.wVersion > OSTRAND_PKG_CURRENT_VERSION;
  if (body_in.ok() && body_in.left() > 0 && !newer_fields_may_follow) {
    return OSTRAND_CODEC_ERR_BODY_TRAILING;
  }
  return body_in.error();
}

}  // namespace

int PackWholeCsPkgMaybeCompress(char* buf, size_t& len, char* /*zip_buf*/, size_t /*zip_len*/,
                                const OStrandPkg& pkg, int version, void* /*log_handle*/) {
  if (buf == nullptr) {
    return OSTRAND_CODEC_ERR_ARGUMENT;
  }
  if (version < 0) {
    return OSTRAND_CODEC_ERR_VERSION;
  }
  if (const int ret = CheckCompression(pkg.stHead)) {
    return ret;
  }
  const int written_version = std::min(version, int{OSTRAND_PKG_CURRENT_VERSION});
  ByteWriter out(buf, len);
  PackHead(out, pkg.stHead, static_cast<uint16_t>(written_version));
  const auto head_len = static_cast<size_t>(out.position() - buf);
  PackBody(out, pkg.stBody, pkg.stHead.dwCmd);
  if (out.error() != 0) {
    return out.error();
  }
  const auto frame_len = static_cast<size_t>(out.position() - buf);
  StoreBigEndian(buf + kHeadLenOffset, static_cast<uint32_t>(head_len));
  StoreBigEndian(buf + kBodyLenOffset, static_cast<uint32_t>(frame_len - head_len));
  len = frame_len;
  return 0;
}

int UnpackWholeCsPkgMaybeDecompress(OStrandPkg& pkg, char* /*zip_buf*/, size_t /*zip_len*/,
                                    const char* data, size_t len, void* /*log_handle*/,
                                    char* /*extra_buf*/, size_t /*extra_len*/) {
  const int ret = UnpackFrame(pkg, data, len);
  if (ret != 0) {
    pkg.stHead.construct();
  }
  return ret;
}

}  // namespace ostrand_protocol_cs
