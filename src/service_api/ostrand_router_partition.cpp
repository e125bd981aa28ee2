// The hash function of the ring and the ring's partition among proxies.
#include <algorithm>
#include <cassert>
#include <cstring>
#include <set>
#include <utility>

#include "service_api/log_macros.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

constexpr uint64_t kHashMultiplier = 0xC6A4A7935BD1E995u;
constexpr uint64_t kHashSeed = 0x12DD273u;
constexpr int kHashShift = 47;

// 2^64 / 100: what each of a lone proxy's 100 arcs would own if they were equal.
constexpr uint64_t kEvenArc = 0x28F5C28F5C28F5Cu;

uint64_t LoadLittleEndian(const unsigned char* bytes) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  uint64_t value;
  std::memcpy(&value, bytes, sizeof(value));
  return value;
#else
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) {
    value = (value << 8) | bytes[i];
  }
  return value;
#endif
}

}  // namespace

uint64_t con_hash_func(const char* data, uint64_t len) {
  if (len == 0) {
    return 0;
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  const auto length = static_cast<uint32_t>(len);
  uint64_t h = (len * kHashMultiplier) ^ kHashSeed;

  const unsigned char* const blocks_end = bytes + length / 8 * 8;
  for (; bytes != blocks_end; bytes += 8) {
    uint64_t k = LoadLittleEndian(bytes);
    k *= kHashMultiplier;
    k ^= k >> kHashShift;
    k *= kHashMultiplier;
    h *= kHashMultiplier;  // the published function XORs first
    h ^= k;
  }

  const uint32_t tail = length % 8;
  if (tail != 0) {
    for (uint32_t i = tail; i > 0; --i) {
      h ^= static_cast<uint64_t>(bytes[i - 1]) << (8 * (i - 1));
    }
    h *= kHashMultiplier;
  }

  h ^= h >> kHashShift;
  h *= kHashMultiplier;
  h ^= h >> kHashShift;
  return h;
}

const uint64_t OstrandRouter::FIRST_NODE_VIRTUAL_HASH_DATA[MAX_NODE_PER_SERVER] = {
    0x0000000000000000u, 0x62001E00A2EEAD34u, 0xF4C72F8003728F95u, 0xCC00E21612711024u,
    0xFC7AAE114F95BAD5u, 0x0E3E5654FEF259F7u, 0xD0DE4B3C5193DED5u, 0x5F952BD5693BFA8Du,
    0xAE8F17F4B8AF108Fu, 0x35F45B9DBDC32ABBu, 0x8B1EC136BA51571Eu, 0xA34CCCC267429FC6u,
    0x7AD3B6D75A9B8911u, 0x0D2B598EE309DE09u, 0xA4CA349CBCDE045Fu, 0x6071261AFEEC0F01u,
    0x3E0EB79B1F907402u, 0x1338DD549EBE9E56u, 0x9E8A590FF57541D6u, 0x25D15CB7E19DA0A4u,
    0x138F3C3829B620BAu, 0x95C60CBFFEC43A90u, 0x415BBBA23EEFA1CCu, 0xE1BC3DDBB0CD1FCAu,
    0xF576D05E93CD08AFu, 0xADB2328BA7054C3Cu, 0x8B9A9C7A8E12B16Bu, 0xF9326FAF520F0CC1u,
    0xABE87BC52D7B41AEu, 0x88842C3F7C3FC9DFu, 0xE7E2BB2E6BACC99Eu, 0xF90A1C79E969EE80u,
    0xECD77D36F72F9A89u, 0xAFC19E35E6C53B5Bu, 0x3AAF74D8ECC633E1u, 0xE4873ED540A2906Fu,
    0xBA9B6E1ED21E431Fu, 0x9A5D4E5D0CFF823Fu, 0x098B78AB4BDE0295u, 0x95243547F11681FCu,
    0xB27DE8451C85623Eu, 0x867A034B9D99C12Au, 0x78238A5FF50B5CAAu, 0xC93435AEED1A83CFu,
    0xA3CCBF38C6EF3E29u, 0x0D95D3EEC0691720u, 0x4C990C4719B6E1BDu, 0x418E0ACC63B9F40Bu,
    0xF311803F5649798Cu, 0x838AF3E23AB6FBADu, 0x7E412FC158574775u, 0x656F4571CB45093Bu,
    0x04A992344765123Eu, 0x662207CE295FB2BBu, 0x14154315947855A3u, 0x4DE1F83249AE40F2u,
    0x78719FF7BA7EFBFBu, 0x93D9F534F7A8121Au, 0x24F64FFF598F8A65u, 0x957124D493A19A1Au,
    0xB708DB06AC591D2Au, 0xE2D4D5B8CFE5F6E9u, 0x18CD645E4C8C66AEu, 0x5C90963AA7A0D501u,
    0x3631621FD0FCCA0Au, 0x5753C8A4DC247C49u, 0x18A335B306AFAE14u, 0x5A889A50482F1190u,
    0x7556F4882EBB582Au, 0xCA40FEA04F13E30Du, 0x62FE9B9F49BBBF8Eu, 0x31D9F15B948F680Au,
    0x537A658B3214AACEu, 0x2E2F0E38271746D3u, 0x43EB2DC6F4E79E73u, 0xC8163D16B0043D6Cu,
    0x319EDEBF9596FBDEu, 0xDD5FE4A9DEEB405Eu, 0x804828A6FFECB221u, 0x1A02947C1A2B6D7Cu,
    0xFA074C3F184A2837u, 0x5A773F626F0A9E63u, 0x6D2863F13CD6353Fu, 0xA108ECDA72ABD2A6u,
    0xCB990842CE85A8F9u, 0xECEBAD70E9576D34u, 0xD617E9431F55F019u, 0x7DBF39815D9577C7u,
    0x85C075E09FFEE038u, 0xB5420F087E9B226Au, 0x72F9BB7157A91401u, 0xA84CCA55E6A873E5u,
    0xD297B52D1CDEBF82u, 0x629D06352CB638B4u, 0xEF794C0C28CD6D38u, 0x858D8663E4FF0B4Du,
    0xFC4384FDEB85B185u, 0x94056A20D3EF06FFu, 0x25922B991B00CDDEu, 0xF5EE01A841C3C885u,
};

int OstrandRouter::ConHashCalcHashNode(int real_num) try {
  if (real_num < 1) {
    ROUTER_LOG_INFO(m_logger, m_module_id, "ConHashCalcHashNode", "param error, real_num|%d",
                    real_num);
    return ROUTER_ERR_FAILED;
  }
  assert(real_num <= MAX_SERVER_COUNT);
  std::for_each(m_len2ending, m_len2ending + real_num, [](Len2Ending& arcs) { arcs.clear(); });
  m_totallen2id.clear();
  if (!PartitionAmongFirstNode()) {
    return ROUTER_ERR_FAILED;
  }

  double max_distance = 0.0;
  for (int id = 1; id < real_num; ++id) {
    const int ret = ConHashSplitHashRing(id);
    if (ret != 0) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, "ConHashCalcHashNode", "SplitHashRing failed, ret %d",
                       ret);
      return ROUTER_ERR_FAILED;
    }
    const auto smallest = static_cast<double>(m_totallen2id.rbegin()->first);
    const auto largest = static_cast<double>(m_totallen2id.begin()->first);
    max_distance = std::max(max_distance, 1.0 - smallest / largest);
  }
  ROUTER_LOG_TRACE(m_logger, m_module_id, "ConHashCalcHashNode",
                   "real node max distance: %lf, real_num|%d, MAX_NODE_PER_SERVER|%d, "
                   "m_totallen2id_num|%zu",
                   max_distance, real_num, MAX_NODE_PER_SERVER, m_totallen2id.size());
  return 0;
} catch (...) {  // a container ran out of memory
  return ROUTER_ERR_FAILED;
}

// Gives the whole ring to id 0: one arc for each start position, reaching back to the one below.
bool OstrandRouter::PartitionAmongFirstNode() {
  std::set<uint64_t> endings;
  for (const uint64_t ending : FIRST_NODE_VIRTUAL_HASH_DATA) {
    if (!endings.insert(ending).second) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, "ConHashCalcHashNode", "get same rand num: %lu",
                       ending);
      return false;
    }
  }
  uint64_t previous = *endings.rbegin();
  for (const uint64_t ending : endings) {
    m_len2ending[0].emplace(ending - previous, ending);
    previous = ending;
  }
  // The whole ring is 2^64 long, one more than the type holds.
  m_totallen2id.emplace(UINT64_MAX, 0);
  return true;
}

int OstrandRouter::ConHashSplitHashRing(int id) try {
  if (id < 0) {
    ROUTER_LOG_ERROR(m_logger, m_module_id, "ConHashSplitHashRing", "param error, id|%d", id);
    return ROUTER_ERR_FAILED;
  }
  assert(id < MAX_SERVER_COUNT);
  const uint64_t step = kEvenArc / (static_cast<uint64_t>(id) + 1);
  for (int cut = 0; cut < MAX_NODE_PER_SERVER; ++cut) {
    if (m_totallen2id.empty()) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, "ConHashSplitHashRing",
                       "it_total == m_totallen2id.end()");
      return ROUTER_ERR_FAILED;
    }
    Len2Ending& owner_arcs = m_len2ending[m_totallen2id.begin()->second];
    if (owner_arcs.empty()) {
      ROUTER_LOG_ERROR(m_logger, m_module_id, "ConHashSplitHashRing",
                       "it_len == m_len2ending[n].end()");
      return ROUTER_ERR_FAILED;
    }
    // The owner keeps the arc's tail. With up to 200 ids the arc is far longer than step; a shorter
    // one would wrap. Nodes move from place to place: insertion behind equal keys, no allocation.
    auto arc = owner_arcs.extract(owner_arcs.begin());
    const uint64_t cut_at = arc.mapped() - arc.key() + step;
    arc.key() -= step;
    owner_arcs.insert(std::move(arc));
    m_len2ending[id].emplace(step, cut_at);
    auto total = m_totallen2id.extract(m_totallen2id.begin());
    total.key() -= step;
    m_totallen2id.insert(std::move(total));
  }
  m_totallen2id.emplace(step * MAX_NODE_PER_SERVER, static_cast<uint32_t>(id));
  return 0;
} catch (...) {  // a container ran out of memory
  return ROUTER_ERR_FAILED;
}

}  // namespace OstrandService
