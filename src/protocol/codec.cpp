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

// read_body: UnpackBody, or what finds the same failures.
template <typename ReadBody>
int UnpackFrame(OStrandPkg& pkg, const char* data, size_t len, ReadBody read_body) {
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
  read_body(body_in, pkg.stBody, pkg.stHead.dwCmd);
  const bool newer_fields_may_follow = pkg.stHead.wVersion > OSTRAND_PKG_CURRENT_VERSION;
  if (body_in.ok() && body_in.left() > 0 && !newer_fields_may_follow) {
    return OSTRAND_CODEC_ERR_BODY_TRAILING;
  }
  return body_in.error();
}

template <typename ReadBody>
int UnpackOrClear(OStrandPkg& pkg, const char* data, size_t len, ReadBody read_body) {
  const int ret = UnpackFrame(pkg, data, len, read_body);
  if (ret != 0) {
    pkg.stHead.construct();
  }
  return ret;
}

void StoreLengths(char* frame, size_t head_len, size_t body_len) {
  StoreBigEndian(frame + kHeadLenOffset, static_cast<uint32_t>(head_len));
  StoreBigEndian(frame + kBodyLenOffset, static_cast<uint32_t>(body_len));
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
  StoreLengths(buf, head_len, frame_len - head_len);
  len = frame_len;
  return 0;
}

int UnpackWholeCsPkgMaybeDecompress(OStrandPkg& pkg, char* /*zip_buf*/, size_t /*zip_len*/,
                                    const char* data, size_t len, void* /*log_handle*/,
                                    char* /*extra_buf*/, size_t /*extra_len*/) {
  return UnpackOrClear(pkg, data, len, UnpackBody);
}

int PackHeadBeforeBody(char* buf, size_t& len, const OStrandPkg& pkg, const char* body,
                       size_t body_len) {
  if (buf == nullptr) {
    return OSTRAND_CODEC_ERR_ARGUMENT;
  }
  if (const int ret = CheckCompression(pkg.stHead)) {
    return ret;
  }
  ByteWriter out(buf, len);
  PackHead(out, pkg.stHead, OSTRAND_PKG_CURRENT_VERSION);
  const auto head_len = static_cast<size_t>(out.position() - buf);
  out.PutBytes(body, body_len);
  if (out.error() != 0) {
    return out.error();
  }
  StoreLengths(buf, head_len, body_len);
  len = head_len + body_len;
  return 0;
}

int UnpackHeadCheckBody(OStrandPkg& pkg, const char* data, size_t len) {
  return UnpackOrClear(pkg, data, len, CheckBody);
}

int UnpackBodyOfCmd(OStrandPkgBody& body, uint32_t cmd, const char* data, size_t len) {
  ByteReader in(data, len, OSTRAND_CODEC_ERR_BODY_TRUNCATED);
  UnpackBody(in, body, cmd);
  return in.ok() && in.left() > 0 ? int{OSTRAND_CODEC_ERR_BODY_TRAILING} : in.error();
}

OStrandHeadPlaces FindHeadPlaces(const char* frame) {
  const size_t table = kTableNameOffset + sizeof(uint32_t);
  const size_t after_table = table + LoadBigEndian<uint32_t>(frame + kTableNameOffset);
  const size_t user = after_table + sizeof(uint32_t);
  return {table, user, user + LoadBigEndian<uint32_t>(frame + after_table)};
}

}  // namespace ostrand_protocol_cs
