// Every counter of the statistics record, each declared once: name, unit, meaning.
//
// The fields of the records (service_api_statistic.h) and whatever prints them come from these
// lists. Counters whose names end in PerMin are moved to the last minute's copy and cleared once a
// minute.
#pragma once

// Counters that both the overall record and each table's record keep. X(name, unit, meaning): the
// overall field is dw<name>, the table's field dwTable<name>, both uint32.
#define OSTRAND_SHARED_COUNTERS(X)                                                            \
  X(ApiFindRouteErrNumPerMin, "requests", "no usable proxy was found")                        \
  X(ReqSucNumPerMin, "requests", "queued for sending")                                        \
  X(ReadReqSucNumPerMin, "requests", "reads queued for sending")                              \
  X(WriteReqSucNumPerMin, "requests", "writes queued for sending")                            \
  X(ReqErrNumPerMin, "requests", "could not be sent")                                         \
  X(ReadReqErrNumPerMin, "requests", "reads that could not be sent")                          \
  X(WriteReqErrNumPerMin, "requests", "writes that could not be sent")                        \
  X(RespSucNumPerMin, "packages", "answers with result 0")                                    \
  X(ReadRespSucNumPerMin, "packages", "read answers with result 0")                           \
  X(WriteRespSucNumPerMin, "packages", "write answers with result 0")                         \
  X(RespErrNumPerMin, "packages", "answers with an error")                                    \
  X(ReadRespErrNumPerMin, "packages", "read answers with an error")                           \
  X(WriteRespErrNumPerMin, "packages", "write answers with an error")                         \
  X(RespWarnNumPerMin, "packages", "answers whose error is only a warning")                   \
  X(ReadRespWarnNumPerMin, "packages", "read answers whose error is only a warning")          \
  X(ApiErrNumPerMin, "packages", "errors of the client library")                              \
  X(DynamicErrNumPerMin, "packages", "answers with the error code being watched")             \
  X(OstrsvrErrNumPerMin, "packages", "errors of the storage servers")                         \
  X(OstrsvrRouteMsgErrNumPerMin, "packages", "server: message could not be routed")           \
  X(OstrsvrSystemErrNumPerMin, "packages", "server: system error")                            \
  X(OstrsvrRecordExistErrNumPerMin, "packages", "server: the record exists already")          \
  X(OstrsvrInvalidIndexErrNumPerMin, "packages", "server: invalid index")                     \
  X(OstrsvrInvalidFielNameErrNumPerMin, "packages", "server: invalid field name")             \
  X(OstrsvrInvalidFieldTypeErrNumPerMin, "packages", "server: invalid field type")            \
  X(OstrsvrInvalidOperationErrNumPerMin, "packages", "server: invalid operation")             \
  X(OstrsvrListFullErrNumPerMin, "packages", "server: the list is full")                      \
  X(OstrsvrCommandMisMatchErrNumPerMin, "packages", "server: command does not fit the table") \
  X(OstrsvrOutUserRangeErrNumPerMin, "packages", "server: outside the user's range")          \
  X(OstrroxyErrNumPerMin, "packages", "errors of the proxies")                                \
  X(OstrroxySendMsgErrNumPerMin, "packages", "proxy: message could not be sent")              \
  X(OstrroxyLackSomeFieldsNumPerMin, "packages", "proxy: fields are missing")                 \
  X(OstrroxyRouteMsgErrNumPerMin, "packages", "proxy: message could not be routed")           \
  X(OstrroxyFailedToFindNodeErrNumPerMin, "packages", "proxy: no server for the key")         \
  X(OstrroxySwiftErrNumPerMin, "packages", "proxy: transfer error")                           \
  X(OstrroxyRequestAccessCtrlErrNumPerMin, "packages", "proxy: refused by access control")

// Counters of the overall record alone. X(type, name, unit, meaning).
#define OSTRAND_OVERALL_COUNTERS(X)                                                              \
  X(uint32_t, dwApiConnectOstrroxyCount, "connections", "proxies in use that can take requests") \
  X(uint32_t, dwApiConnectOstrroxyErrNumPerMin, "attempts", "connections that failed to start")  \
  X(uint32_t, dwPackErrNumPerMin, "requests", "could not be packed")                             \
  X(uint32_t, dwUnpackErrNumPerMin, "packages", "could not be unpacked")

// The slowest answer of the minute, for each kind of request: X(kind). The overall record has the
// fields ull<kind>MaxLatencyPerMin (ms), ull<kind>MaxDelayTime (ms since the epoch),
// dw<kind>MaxDelayCmd (command code), dw<kind>MaxDelayIp and dw<kind>MaxDelayPort.
#define OSTRAND_LATENCY_KINDS(X) X(SimpleRead) X(SimpleWrite) X(ComplexRead) X(ComplexWrite)

// Counters of the record of one access (one proxy connection). X(type, name, unit, meaning).
#define OSTRAND_ACCESS_COUNTERS(X)                                                              \
  X(uint32_t, dwRequestCountPerMin, "requests", "sent to this proxy")                           \
  X(uint32_t, dwBatchRequestCountPerMin, "requests", "batch gets sent to this proxy")           \
  X(uint32_t, dwResponseCountPerMin, "packages", "received from this proxy")                    \
  X(uint32_t, dwBatchResponseCountPerMin, "packages", "batch-get answers of this proxy")        \
  X(uint32_t, dwTimeOutCountPerMin, "requests", "got no answer of this proxy in time")          \
  X(uint32_t, dwOstrsvrReturnErrCountPerMin, "packages", "errors of servers behind this proxy") \
  X(uint32_t, dwProxyReturnErrCountPerMin, "packages", "errors of this proxy")                  \
  X(uint32_t, dwProxyReturnSystemErrCountPerMin, "packages", "system errors of this proxy")     \
  X(uint32_t, dwDynamicErrCountPerMin, "packages", "answers with the error code being watched") \
  X(uint32_t, dwMaxDelay, "ms", "slowest answer of this proxy")                                 \
  X(uint64_t, ullMaxDelayTime, "ms since the epoch", "when the slowest answer came")            \
  X(uint32_t, dwMaxDelayCmd, "command code", "command of the slowest answer")                   \
  X(uint64_t, ullTimeOutCount, "requests", "dwTimeOutCountPerMin of all earlier minutes")       \
  X(uint64_t, ullProxyReturnSystemErrCount, "packages", "the same of system errors")

// Buckets of a delay record. X(name, unit, meaning); all uint32.
#define OSTRAND_DELAY_COUNTERS(X)                                                       \
  X(dwMaxDelay, "ms", "largest delay")                                                  \
  X(dwDelayLowZero, "packages", "delay unknown: a stamp is missing or clocks disagree") \
  X(dwDelayLow10MS, "packages", "up to 10 ms")                                          \
  X(dwDelayLow100MS, "packages", "11 to 100 ms")                                        \
  X(dwDelayLow500MS, "packages", "101 to 500 ms")                                       \
  X(dwDelayLow1000MS, "packages", "501 to 1000 ms")                                     \
  X(dwDelayHigh1S, "packages", "more than 1000 ms")

// Stages of a request's way, in the order of the summary. X(name, meaning).
#define OSTRAND_DELAY_STAGES(X)                                            \
  X(stApiTotalDelay, "whole way, seen by the client")                      \
  X(stApiToProxyDelay, "client to proxy")                                  \
  X(stProxyReqHandleDelay, "request inside the proxy (not measured here)") \
  X(stProxyToSvrDelay, "proxy to server")                                  \
  X(stSvrHandleDelay, "inside the server")                                 \
  X(stSvrToProxyDelay, "server to proxy")                                  \
  X(stProxyRspHandleDelay, "answer inside the proxy (not measured here)")  \
  X(stProxyTotalDelay, "whole way behind the proxy")                       \
  X(stProxyToApiDelay, "proxy to client")
