// The request router of one application and zone.
//
// It keeps a signed-up connection to each proxy of the zone, spreads requests over them with a
// consistent-hash ring, matches answers to requests, and takes sick proxies out of use.
//
// Use: construct it (on the heap: it is over 320 KB), SetUserNameAndPassword, Init; then give it
// directory answers with FlushRoute, call OnUpdate regularly, send with SendRequest, poll
// RecvResponse; Fini or the destructor ends it.
//
// Ownership: the router owns its lists, the ProxyServer records that list elements point at, and
// its frame parser. Everything else it is given stays its giver's and outlives it; signature, user
// name, password, pack buffer and QoS records are borrowed, never copied. A ProxyServer dies in
// this order: ring slots that hold it nulled, connector removed, elements that share it reset,
// deleted.
//
// Threads: every public operation belongs to the application's thread, but for SetAlarmErrorCode
// (any thread) and what the receive callback uses: GetLogger and ProcRouterMsg (network thread). No
// receive callback may run during Init, Fini, FlushRoute, OnUpdate and
// SendGetMetaReqForRecheckProxyAvailable: the service pauses its network thread around them.
//
// Locks, in the only order in which they nest: m_mutex_list, m_mutex_vistual_nodes; m_alarmMutex is
// taken under either or alone, and nothing is taken under it.
//
// Errors: 0 is success, negative a code. Nothing throws, ConHashGetUrlIndex(nullptr) excepted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/export.h"
#include "common/logger.h"
#include "common/mutex.h"
#include "common/relaxed.h"
#include "net/net_connector_mgr.h"
#include "protocol/ostrand_protocol_cs.h"
#include "protocol/perf_test.h"
#include "service_api/list.h"
#include "service_api/proxy_server.h"
#include "service_api/register_table_info.h"
#include "service_api/ring_index.h"
#include "service_api/router_status.h"
#include "service_api/service_api_statistic.h"
#include "service_api/table_qos.h"

namespace ostrand_protocol_dir {
struct tagOStrdirCSPkg;
struct tagResGetTablesAndAccess;
}  // namespace ostrand_protocol_dir

namespace OstrandService {

class JudgeProxy;
class LatencyDataMgr;
class OstrandServer;
class OstrandServiceRequest;
class OstrandServiceResponse;
class OstrandServiceStatisticMgr;
class ProxyPackParser;

// Codes of the router.
enum RouterError : int {
  ROUTER_ERR_NOT_INITIALISED = -4371,    // 0xFFFFEEED; also a repeated Init
  ROUTER_ERR_ALLOCATION = -9747,         // 0xFFFFD9ED
  ROUTER_ERR_ARGUMENT = -1811,           // 0xFFFFF8ED
  ROUTER_ERR_FAILED = -256,              // 0xFFFFFF00
  ROUTER_ERR_NO_ROUTE = -13843,          // 0xFFFFC9ED
  ROUTER_ERR_SEND_BUFFER_FULL = -12307,  // 0xFFFFCFED
};

// One point of the ring: the proxy owns the arc that ends here.
struct VirtualServerNode {
  uint64_t hash_code;
  ProxyServer* server;  // not owned
};

// Arc length to arc ending, the longest first; among equal lengths the earliest inserted first.
using Len2Ending = std::multimap<uint64_t, uint64_t, std::greater<uint64_t>>;
// Total length that a real node owns to its id, the largest first.
using Totallen2Id = std::multimap<uint64_t, uint32_t, std::greater<uint64_t>>;

// Position of `len` bytes on the ring; 0 for no bytes. Pure, any thread.
//
// MurmurHash64A (Austin Appleby, MurmurHash2, 64-bit version for 64-bit platforms) with seed
// 0x12DD273, but in each block h is multiplied first and XORed after: positions must agree with
// every other client of the zone.
OSTRAND_API uint64_t con_hash_func(const char* data, uint64_t len);

// The receive callback of every proxy's connector; arg is the connector's ProxyServer. Network
// thread. -1: an argument is missing or the frame is shorter than its fixed head; -2: no logger; 0:
// the frame is left for the response path; 1: the router consumed it.
int RouterCallBack(const char* url, const char* data, int len, void* arg);

// Logs one DEBUG line for each element of a list, headed by `prefix`.
void TraceLogConnection(OstrandCommon::Logger* logger, int module_id, List* list,
                        const char* prefix);

// Order in which the fields of a key are sorted: descending by name, at most 32 bytes of it
// compared.
OSTRAND_API bool OStrandKeyFieldComp(const ostrand_protocol_cs::OStrandKeyField& a,
                                     const ostrand_protocol_cs::OStrandKeyField& b);

class OSTRAND_API OstrandRouter {
 public:
  static constexpr int MAX_NODE_PER_SERVER = 100;  // ring points of one proxy
  static constexpr int MAX_SERVER_COUNT = 200;     // proxies on the ring
  static constexpr uint32_t MAX_VIRTUAL_NODE_COUNT = MAX_NODE_PER_SERVER * MAX_SERVER_COUNT;
  static constexpr int MAX_TABLE_QOS_COUNT = 256;

  // Where the arcs of real node 0 end; all distinct.
  static const uint64_t FIRST_NODE_VIRTUAL_HASH_DATA[MAX_NODE_PER_SERVER];

  // module_id: printed with every log line. pack_buffer: requests are packed here (at least
  // 8 * 1024 bytes; long enough for the largest request). sync_timeout: ms, stored only.
  // The three collaborators may be null; Init then fails.
  OstrandRouter(int32_t module_id, char* pack_buffer, size_t pack_buffer_size, int64_t app_id,
                int32_t zone_id, const char* signature, int32_t sign_type,
                LatencyDataMgr* latency_data_mgr, OstrandServiceStatisticMgr* statistic_mgr,
                JudgeProxy* judge_proxy, uint32_t sync_timeout);
  ~OstrandRouter();
  OstrandRouter(const OstrandRouter&) = delete;
  OstrandRouter& operator=(const OstrandRouter&) = delete;

  // Makes parser and lists, partitions the ring. server: the owning service, a pointer to
  // OstrandServer itself and not to a class derived from it. 0; ROUTER_ERR_NOT_INITIALISED when
  // Init was called before, whatever became of it (Fini makes it possible again; logger and random
  // seed are replaced all the same); ROUTER_ERR_ALLOCATION; ROUTER_ERR_FAILED without a server or
  // when the ring could not be partitioned; ROUTER_ERR_ARGUMENT when a collaborator was null at
  // construction.
  int32_t Init(OSTRNET::CConnectorMgr* connector_mgr, void* server, OstrandCommon::Logger* logger);

  // Releases lists, proxies and parser. May be called more than once; Init may follow.
  void Fini();

  // Both are borrowed; the password is sent as it is and must be encrypted already.
  void SetUserNameAndPassword(const char* user, const char* password_encrypted);

  // The owning service's logger; null without a service.
  OstrandCommon::Logger* GetLogger();

  // Share in per cent of simple requests that carry a performance record. Not bounded: a negative
  // value is widened with its sign and samples every request.
  void SetPerfSampPercent(int32_t percent);

  // Silence in ms after which a proxy is disconnected. Default 30000.
  void SetCheckHeartbeatInterval(uint32_t ms) { m_check_heartbeat_mseconds = ms; }
  // Period of heartbeats in ms. Default 1000.
  void SetHeartbeatInterval(uint32_t ms) { m_heartbeat_mseconds = ms; }

  // Pins one proxy: requests go to it while it is on the ring. ip: at most 127 characters are kept;
  // null is the empty text, which pins nothing.
  void SetSpecialOstrroxyIPAndPort(const char* ip, int32_t port);
  void ReSetSpecialOstrroxyIPAndPort();

  int32_t GetZoneId() const { return m_zone_id; }
  int32_t GetAppId() const { return static_cast<int32_t>(m_app_id); }

  // Makes the next update write the ring, and the ones after it until all proxies are signed up.
  void SetForceFlushHash(bool force) { m_force_flush_hash = force; }

  // Hands out the pack buffer and its size.
  void GetCombineBuf(char*& buf, int32_t& len);

  // Takes a directory answer: the first route is used at once, a later one that differs is prepared
  // beside the one in use. 0, also when nothing changed; ROUTER_ERR_NOT_INITIALISED;
  // ROUTER_ERR_ARGUMENT for null, another command, a result that is not 0 or no proxies; the code
  // of the first proxy that could not be added (those before it stay); ROUTER_ERR_ALLOCATION also
  // when the index of urls runs out of memory (it is then part-built, the lists are as before).
  // Rows behind the 200th are ignored.
  int FlushRoute(const ostrand_protocol_dir::tagOStrdirCSPkg* response);

  // Drives everything that takes time: connects, signs up, sends heartbeats, switches to a prepared
  // route, drops removed proxies, judges availability, rewrites the ring. Call it every 10 ms or
  // so, at least a few times a second. now_ms: the caller's clock, ms. signature: for sign-up, null
  // to sign up with user name and password. type, response: not used; request may be null.
  void OnUpdate(int64_t now_ms, int32_t type, const char* signature, OstrandServiceRequest* request,
                OstrandServiceResponse* response);

  // Sends a request to its proxy and registers it as in flight. 0: queued, or, while no proxy has
  // answered a sign-up yet, dropped (net_size then stays as it is). ROUTER_ERR_NOT_INITIALISED also
  // for null, no table name and a table without QoS record; ROUTER_ERR_NO_ROUTE;
  // ROUTER_ERR_SEND_BUFFER_FULL; the negative codes of the in-flight table, of packing and of the
  // connector. After a failure the request may still be registered; it then times out.
  int32_t SendRequest(OstrandServiceRequest* request);

  // Takes the next answer: one request that got none in time, else one package of one proxy. 1: it
  // is in `response`; 0: there is none; ROUTER_ERR_NOT_INITIALISED; ROUTER_ERR_ARGUMENT for null.
  // After 0 the response may hold a package that was refused. request is not used.
  //
  // An answer that comes after its time-out is still delivered when it is whole, or the first
  // package of several (in local-buffer mode it is refused). User bytes that were kept here went
  // with the time-out: such a first package of a request with over 1009 of them has none.
  int32_t RecvResponse(OstrandServiceResponse* response, OstrandServiceRequest* request);

  // Logs how often each negative result came since the last call, and starts anew.
  void PrintErrorCodeStatistics();

  // A text of three counts and three sections: proxies not connected, not signed up, signed up.
  std::string GetStatLog();

  // Fills one row a proxy in use, at most `capacity`, and adds their number to `count`.
  void GetProxyStatus(ProxyStatus* rows, int capacity, int& count);

  // Url of the proxy that the last request was queued for; null before the first. Valid until the
  // next SendRequest.
  const char* GetUsedProxyUrl() const;

  // One record a proxy in use. 0; ROUTER_ERR_FAILED, and none, when one has no connector.
  int GetConnectorBufferInfo(std::vector<BuffStaticBetweenApiAndProxy>& infos);

  // Buffers of a random usable proxy. hash_code is taken for the zone of the table, which must be
  // registered: an unknown one is refused. 0; a code of the routing, whose counters it leaves;
  // ROUTER_ERR_FAILED; ROUTER_ERR_NOT_INITIALISED also for a null table name.
  int GetTraverseConnBuffInfo(BuffStaticBetweenApiAndProxy& info, int hash_code,
                              const char* table_name);

  // Whether the application may send: 0 not yet, 1 all proxies in use are signed up (or so nearly
  // all that it makes no difference), 2 some are. The counts (signed up, in use) are set only when
  // they were needed. Pauses the network thread itself; not called while holding a lock.
  int CheckConnectAll(int64_t& auth_cnt, int64_t& total_cnt);

  // Registers a table's QoS record: the router counts in it until RemoveTableQos. At most 256; one
  // too many is only logged, a second record of the same zone and table is ignored.
  void SetQos(tagTableQos* qos);
  // Forgets a table's record. 0, also when there was none; -1 for a null name. Only the first 32
  // characters count: a name of that length needs no NUL.
  int RemoveTableQos(int zone_id, const char* table_name);

  // Gives a code to report to the proxies with the next heartbeat; each code is told once. Any
  // thread.
  void SetAlarmErrorCode(int32_t code);

  // The proxy for a request; for none a random one. 0; ROUTER_ERR_NOT_INITIALISED also for a null,
  // empty or unknown table; ROUTER_ERR_NO_ROUTE when no proxy is usable. out is null on failure,
  // untouched by a router that is not initialised.
  int GetRouterProxyServer(ProxyServer*& out, OstrandServiceRequest* request, int zone_id,
                           const char* table_name) OSTRAND_EXCLUDES(m_mutex_vistual_nodes);

  // Asks a proxy for the schema of the zone's first registered table; the answer goes into the
  // schema check and never to the user. 0; -1 when the zone has no table; -3 for a table name of 32
  // characters; -6 when it could not be sent; another negative code when it could not be built.
  int SendGetMetaReqForRecheckProxyAvailable(ProxyServer* server);

  // Compares a table's schema with the server's, as a metadata answer tells it, and writes the
  // verdict into the service's table map. 0 also when there is nothing to compare; -1 for null;
  // RegisterTableInfo::kCheckFailed; ROUTER_ERR_ALLOCATION without memory, the check is then still
  // to be made; else CompareEntryValueField's code. Runs in the receive callback, or with the
  // network thread paused.
  int ProcessGetMetaResForCheckTable(ostrand_protocol_cs::OStrandPkg* pkg);

  // Handles a frame of the router's own conversation with a proxy. Network thread. pass_to_user is
  // set when the frame turns out to be the user's. Its result tells tests what became of the frame:
  // 1 handled, 0 dropped, negative a failure.
  int ProcRouterMsg(const char* url, const char* data, int len, bool& pass_to_user);

 private:
  friend class OstrandRouterPeer;  // what tests look at
  friend class RingView;           // the ring without connections, for tools

  // The lists (ostrand_router_servers.cpp). A null list is an empty one.
  //
  // Appends an element for server_url. server null: a new record and connector are made; else the
  // given record is shared. 0 (also when the url is there already: the old element stays); -1
  // without a logger; ROUTER_ERR_ARGUMENT for a null url or one not of 11 to 1023 characters;
  // ROUTER_ERR_ALLOCATION when record or connector could not be made or the list is full. On
  // failure the list is unchanged and nothing made in the call survives.
  int AddServerNode(List* list, const char* server_url, const char* server_id, ProxyServer* server);
  static RealServerNode* FindServerNode(List* list, const char* server_url);
  static ListNode* FindListNode(List* list, const char* server_url);
  // Detaches the first element with this url from its record.
  static void ResetServerNode(List* list, const char* server_url);
  // Empties a list and destroys its records; elements of the three lists that share one are
  // detached first.
  void ReleaseServerList(List* list);
  // Number of proxies of a list that can take requests now.
  static uint32_t GetConnectedCount(List* list);
  ProxyServer* CreateProxyServer(const char* server_url);
  // Nulls the ring slots that hold the record, removes its connector. The record is then free to
  // be deleted.
  void ReleaseConnection(ProxyServer* server) OSTRAND_EXCLUDES(m_mutex_vistual_nodes);

  // The periodic update (ostrand_router_update.cpp).
  //
  // Records that a switch of routes moved.
  struct MovedServers {
    ProxyServer* servers[2 * List::kCapacity];
    uint32_t count = 0;

    void Add(ProxyServer* server) { servers[count++] = server; }
  };
  bool UpdateUsing(int64_t now_ms, const char* signature, uint32_t& auth_succ_count);
  bool UpdatePreparing(int64_t now_ms, const char* signature, uint32_t auth_succ_count);
  bool NeedSwitch(int64_t now_ms, uint32_t prepare_auth_succ_count, uint32_t auth_succ_count);
  void MoveDepartedToRemoving(MovedServers& moved) OSTRAND_EXCLUDES(m_mutex_list);
  void MovePreparedToUsing(MovedServers& moved) OSTRAND_EXCLUDES(m_mutex_list);
  void ReleaseUnlisted(MovedServers& moved) OSTRAND_EXCLUDES(m_mutex_list);
  bool IsListed(const ProxyServer* server) const;
  void DrainRemoving(int64_t now_ms) OSTRAND_EXCLUDES(m_mutex_list);
  void TraceListsIfEnabled(const char* prefix);
  void RecheckHashCircle(int64_t now_ms, uint32_t auth_succ_count);
  void HeartBeat(int64_t now_ms);

  // Directory answers (ostrand_router_route.cpp).
  static bool IsMatchList(const ostrand_protocol_dir::tagOStrdirCSPkg* response, List* list);
  static bool IsInNewRoute(const ostrand_protocol_dir::tagOStrdirCSPkg* response,
                           const char* server_url);
  bool CheckRoute(const ostrand_protocol_dir::tagOStrdirCSPkg* response);
  // 1 when the route differs from the list that it would replace, else 0.
  int NeedFlushRoute(const ostrand_protocol_dir::tagOStrdirCSPkg* response);
  int UseFirstRoute(const ostrand_protocol_dir::tagResGetTablesAndAccess& route);
  int PrunePreparing(const ostrand_protocol_dir::tagOStrdirCSPkg* response);
  int FillPreparing(const ostrand_protocol_dir::tagResGetTablesAndAccess& route);
  int PrepareServer(const char* url, const char* id) OSTRAND_EXCLUDES(m_mutex_list);
  int ShareWithPreparing(const RealServerNode& known) OSTRAND_REQUIRES(m_mutex_list);
  // Numbers the route's urls in ascending order. Always 0.
  int ConHashFreshAllServer(const ostrand_protocol_dir::tagResGetTablesAndAccess& table_and_access);

  // Connections (ostrand_router_connections.cpp).
  //
  // One pass over a list: connects what is disconnected, at most once a second each, signs up what
  // is connected. auth_arg: the signature, may be null. auth_succ_count: proxies signed up.
  void UpdateServerListStatus(List* list, uint64_t now_ms, const char* auth_arg,
                              uint32_t& auth_succ_count);
  void ConnectProxy(const RealServerNode& node, uint64_t now_ms);
  void SignUpProxy(const RealServerNode& node, uint64_t now_ms, const char* auth_arg);
  void PublishConnectError(const char* server_url);
  void CountConnectError();
  // Drops the connections that were silent for m_check_heartbeat_mseconds.
  void DisconnectProxyThatNeedToDisconnect(List* list, int64_t now_ms);
  void SetLastRecvTime(List* list, int64_t ms);

  // The router's own packages (ostrand_router_inner_request.cpp). They are built in the service's
  // scratch buffer and record: a field of a received package is read before.
  //
  // cmd: 27, 51, 53 or 68. signature: sign-up only, may be null; table_name: probe only. 0 sent; -1
  // no scratch or not constructed; -2 an argument is missing; -3 table name too long; -5 another
  // command; -6 not sent; -2323 not packed.
  int InitCsPkgForInnerRequest(ProxyServer* server, ostrand_protocol_cs::OStrandApiCmds cmd,
                               uint64_t asyn_id, const char* signature, const char* table_name);
  void FillInnerHead(ostrand_protocol_cs::OStrandPkgHead& head,
                     ostrand_protocol_cs::OStrandApiCmds cmd, uint64_t asyn_id,
                     const char* table_name);
  int FillInnerBody(ProxyServer* server, ostrand_protocol_cs::OStrandApiCmds cmd,
                    const char* signature, const char* table_name,
                    ostrand_protocol_cs::OStrandPkg* pkg);
  int FillRecheckProbe(const char* table_name, ostrand_protocol_cs::OStrandPkg* pkg);
  int FillAppSignup(const char* signature, ostrand_protocol_cs::OStrandPkg* pkg);
  void FillHeartBeat(ProxyServer* server, ostrand_protocol_cs::OStrandPkg* pkg);
  int SendInnerPkg(ProxyServer* server, const ostrand_protocol_cs::OStrandPkg& pkg, char* buffer,
                   size_t buffer_size);
  int SendAuthRequest(ProxyServer* server, const char* signature);
  // A heartbeat to each connected and signed-up proxy of a list.
  void SendHeartBeatToList(List* list);

  // Inbound frames (ostrand_router_inbound.cpp); network thread.
  RealServerNode* FindNodeOfInbound(const char* url, uint32_t cmd, bool& in_using);
  int ProcHeartBeatRes(const char* url, ProxyServer* server,
                       const ostrand_protocol_cs::OStrandPkg& pkg);
  int ProcAppSignupRes(const char* url, ProxyServer* server, int32_t result);
  void PublishSignupRefusal(const char* url, int32_t result);
  int ProcNotifyStopReq(const char* url, ProxyServer* server, bool in_using, uint64_t asyn_id);
  int ProcMetadataGetRes(const char* url, ProxyServer* server, ostrand_protocol_cs::OStrandPkg* pkg,
                         bool& pass_to_user);

  // Health (ostrand_router_health.cpp).
  //
  // Every 300 ms: takes out of use proxies that answered at most one request in ten.
  void UpdateProxyAvailableV2();
  // The same, then those that the judge calls unavailable. Two connected proxies are always kept.
  void UpdateProxyAvailable();
  void SetUnavailable(ProxyServer* server);
  // Puts proxies that were out of use long enough back on trial. now: s; request is not read.
  int RecheckProxyAvailable(int64_t now, OstrandServiceRequest* request);
  void RecheckProxy(const RealServerNode& node, int64_t now, int64_t interval);
  // Takes a metadata answer if it is the one to the router's own probe (is_recheck), from the
  // response if there is one, else from the package. 0; -1 without both; -2 for a response of
  // another command; -3 without a user buffer.
  int ProcessGetMetaResForRecheck(ProxyServer* server, OstrandServiceResponse* response,
                                  ostrand_protocol_cs::OStrandPkg* pkg, bool& is_recheck);
  // Puts the pending alarm codes into a heartbeat.
  void SetHeartbeatAlarm(ostrand_protocol_cs::OStrandPkg* pkg) OSTRAND_EXCLUDES(m_alarmMutex);
  // Once a minute: logs the proxies whose heartbeats were slow, starts the books anew.
  void CheckHeartbeatLatency();
  // Whether enough proxies stay when this one stops: 0 it may, -1 it may not.
  int ProxyServerCanStop(const char* url);

  // Tables (ostrand_router_tables.cpp).
  //
  // Index of a table's QoS record, or -1.
  int FindTableQos(int zone_id, const char* table_name);
  // Enters the signed-up proxies in use into the statistics.
  void InitStatisticAccess();
  int CheckTableVersion(RegisterTableInfo& info, int zone_id, const char* table,
                        int server_version);
  int CheckTableImage(RegisterTableInfo& info, int zone_id, const char* table,
                      const ostrand_protocol_cs::OStrandPkg& pkg);
  // 0 VEX, 1 PLAIN, 2 PB, -1 when the schema does not tell.
  int GetDataProtocolType(LPVEXMETA meta);

  // The ring's partition (ostrand_router_partition.cpp).
  //
  // Partitions the ring among the ids 0 .. real_num - 1 (REQUIRES: real_num <= 200). A pure
  // function of real_num: adding an id cuts pieces off the arcs of others and moves no ending.
  // 0, or ROUTER_ERR_FAILED; the partition is then part-built.
  int ConHashCalcHashNode(int real_num);
  // Gives `id` 100 arcs of equal length, each cut off the front of the longest arc of whoever owns
  // most. REQUIRES: id < 200; the ids below it are there. 0, or ROUTER_ERR_FAILED.
  int ConHashSplitHashRing(int id);
  bool PartitionAmongFirstNode();

  // Writing the ring (ostrand_router_circle.cpp).
  //
  // Rewrites the ring from the proxies in use: the proxy at position i of the list gets the arcs of
  // id i. Without proxies, or when nobody has an arc, the old ring stays.
  void WriteHashCircle() OSTRAND_EXCLUDES(m_mutex_vistual_nodes);
  void FillHashCircle() OSTRAND_REQUIRES(m_mutex_vistual_nodes);
  void TraceHashCircle() OSTRAND_REQUIRES(m_mutex_vistual_nodes);
  void TraceLists(const char* prefix);
  // Number of a url of the latest route, or -1. REQUIRES: url is not null (else it throws).
  int ConHashGetUrlIndex(const char* url);
  // Reports the fingerprint of the lists that the ring was written from; clients whose lines agree
  // have the same proxies.
  void UpdateHashCircleStat();
  // md5: of the sorted urls; untouched for an empty list.
  void GetServerListStat(List* list, int& count, int& auth_count, std::string& md5);

  // Choosing a proxy (ostrand_router_routing.cpp).
  //
  // Where a request lies on the ring: the hash of its key fields, which are sorted in place; a
  // random ring point when it has many keys or none; 0 without a package.
  uint64_t CalcRequestHashCode(OstrandServiceRequest* request)
      OSTRAND_EXCLUDES(m_mutex_vistual_nodes);
  uint64_t HashKeyFields(ostrand_protocol_cs::OStrandKeyField* fields, uint32_t field_num);
  uint64_t PickRandomPosition(const char* operation) OSTRAND_EXCLUDES(m_mutex_vistual_nodes);
  int FindUsableOnRing(uint64_t hash, OstrandServiceRequest* request, ProxyServer*& out)
      OSTRAND_REQUIRES(m_mutex_vistual_nodes);
  const VirtualServerNode* WalkToUsable(uint32_t start, bool debug)
      OSTRAND_REQUIRES(m_mutex_vistual_nodes);
  int FailOnEmptyRing(const OstrandServiceRequest* request);
  void CountRouteFailure(const OstrandServiceRequest* request);
  // The pinned proxy if it is on the ring, else null.
  ProxyServer* FindUserRouteProxy() OSTRAND_EXCLUDES(m_mutex_vistual_nodes);

  // Requests (ostrand_router_send.cpp).
  //
  // Registers a request as in flight and puts its routing context into the user buffer. 0, also
  // when it goes without a context: metadata requests, user buffers too long, a full in-flight
  // table.
  int32_t SetRequestCtx(ProxyServer* server, OstrandServiceRequest* request);
  int32_t InnerSendRequest(ProxyServer* server, OstrandServiceRequest* request);
  void CountPackError(tagServiceApiStatistic* statistic);
  void CountSendError(tagServiceApiStatistic* statistic, const OstrandServiceRequest& request);
  void CountSent(tagServiceApiStatistic* statistic, ProxyServer* server,
                 const OstrandServiceRequest& request);
  tagAccessRunStatus* FindAccess(tagServiceApiStatistic& statistic, OSTRNET::CConnector* connector);
  void* LoggerHandle() const;

  // Responses (ostrand_router_recv.cpp).
  //
  // 1 when a proxy of the list delivered, else 0.
  int32_t RecvResponseFromList(List* list, OstrandServiceResponse* response,
                               OstrandServiceRequest* request) OSTRAND_REQUIRES(m_mutex_list);
  // Positive: delivered; 0: nothing, or the package was the router's own; negative: an error.
  int32_t InnerRecvResponse(ProxyServer* server, OstrandServiceResponse* response);
  bool UnpackPerf(const OstrandServiceResponse& response, ostrand_protocol_cs::PerfTest& perf);
  // Strips the routing context and settles its in-flight record. 0 also for an answer without a
  // valid context; ROUTER_ERR_FAILED when the answer cannot be given to anybody.
  int32_t ProcRespCtx(int64_t curMs, ProxyServer* server, OstrandServiceResponse* response,
                      int16_t& table_subscript);
  // Commands whose answer comes in several packages.
  static bool IsMultiPkgReqCmd(uint32_t cmd);
  static bool IsMultiPkgRespCmd(uint32_t cmd);
  static void SetMultiRespResult(uint32_t cmd, ostrand_protocol_cs::OStrandPkg* pkg,
                                 int32_t result);

  // Statistics (ostrand_router_statistics.cpp).
  //
  // Gives a share of the simple requests a performance record: a fixed stride, not a random choice.
  void PerfSampling(OstrandServiceRequest* request);
  // Books the delays of a request's way. Nothing when one of the three pointers is null.
  void CalStatisticPerf(SERVICEAPISTATISTIC* statistic, OSTRNET::CConnector* con, uint64_t curMs,
                        ostrand_protocol_cs::PERFTEST* perf, int32_t cmd);
  void CountPeekError();
  void CountUnpackError();
  void CountErrorCode(int32_t result);
  void CountResponse(ProxyServer* server, const OstrandServiceResponse& response,
                     int16_t table_subscript, int64_t now_ms, ostrand_protocol_cs::PerfTest* perf);

  // State, in this order. A: the application's thread alone. R: Relaxed, both threads. C: constant
  // between Init and Fini. L, N, M: guarded by m_mutex_list, m_mutex_vistual_nodes, m_alarmMutex.
  bool m_init_called;         // A
  bool m_init_succeed;        // A
  int32_t m_set_id;           // A
  char m_set_name[64];        // A
  int64_t m_app_id;           // C
  char m_app_name[64];        // A
  int32_t m_zone_id;          // C
  char m_zone_name[64];       // A
  const char* m_signature;    // C; stored only
  int32_t m_signType;         // C
  int32_t m_module_id;        // C
  char* m_pack_buffer;        // A
  size_t m_pack_buffer_size;  // C
  OstrandCommon::Mutex m_mutex_vistual_nodes;
  VirtualServerNode m_virtual_nodes[MAX_VIRTUAL_NODE_COUNT]  // N; ascending by hash_code
      OSTRAND_GUARDED_BY(m_mutex_vistual_nodes);
  uint32_t m_virtual_node_count;            // N; its one writer, the application's thread, reads it
                                            // without the lock
  OSTRNET::CConnectorMgr* m_connector_mgr;  // C
  ProxyPackParser* m_pack_parser;           // C; owned
  OstrandCommon::Mutex m_mutex_list OSTRAND_ACQUIRED_BEFORE(m_mutex_vistual_nodes);
  List* m_using_servers;                          // L; proxies that requests are routed to
  List* m_preparing_servers;                      // L; proxies of a new route, being connected
  List* m_removing_servers;                       // L; proxies that left the route, being drained
  tagTableQos* m_table_qos[MAX_TABLE_QOS_COUNT];  // A; borrowed
  int32_t m_table_qos_count;                      // A; leading slots in use
  int64_t m_last_flush_route_time;                // A; ms
  char m_used_proxy_url[1024];                    // A
  int64_t m_last_flush_hash_circle_time;          // A; ms, 0 until the first write
  int64_t m_last_send_heartbeat_time;             // A; ms, 0 until the first
  uint32_t m_check_heartbeat_mseconds;            // A
  uint32_t m_heartbeat_mseconds;                  // A
  uint32_t m_sync_timeout;                        // C; stored only
  LatencyDataMgr* m_latency_data_mgr;             // C
  OstrandServiceStatisticMgr* m_statistic_mgr;    // C
  JudgeProxy* m_judge_proxy;                      // C
  int64_t m_last_recheck_availabe_time;           // A; s
  OstrandCommon::Relaxed<bool> m_proxy_sign_up_recv;  // R; a sign-up answer came
  Len2Ending m_len2ending[MAX_SERVER_COUNT];          // A; each id's arcs
  Totallen2Id m_totallen2id;                          // A; one entry an id
  std::map<std::string, int32_t> m_all_servers;   // A; urls of the latest route, numbered ascending
  char m_proxy_ip[128];                           // A; pinned proxy, empty: none
  int32_t m_proxy_port;                           // A; 0: none
  OstrandServer* m_ostrand_server;                // C
  OstrandCommon::Logger* m_logger;                // C
  bool m_is_all_connected;                        // A; every proxy in use has signed up
  bool m_force_flush_hash;                        // A
  uint32_t m_last_auth_succ_count;                // A; signed-up proxies at the last ring write
  const char* m_user_name;                        // C
  const char* m_password_encrypted;               // C
  uint64_t m_perfPercent;                         // A
  uint64_t m_perfId;                              // A; running number of the sampler
  std::map<int32_t, int32_t> m_recvErrorCodeMap;  // A; result code to count
  OstrandCommon::Mutex m_alarmMutex;
  std::set<int32_t> m_alarmErrorCode OSTRAND_GUARDED_BY(m_alarmMutex);
  int64_t m_lastCheckProxyTime;                                              // A; ms
  uint32_t m_randSed;                                                        // N, but for Init
  time_t m_last_check_time;                                                  // A; s
  RingIndex m_virtual_node_index OSTRAND_GUARDED_BY(m_mutex_vistual_nodes);  // of m_virtual_nodes
};

}  // namespace OstrandService
