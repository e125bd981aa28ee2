// Error codes of the clients, declared once: name, number, text. Those of router, codec and store
// come through as they are; ErrorText has a text for each.
//
// The low byte of a code's absolute value is 0x13, the client library's module.
#pragma once

namespace OstrandService {

#define OSTRAND_CLIENT_ERRORS(X)                                                                   \
  X(OPTIONS, 0x90, "the options are wrong")                                                        \
  X(NOT_STARTED, 0x91, "the client is not started, is stopped, or was started before")             \
  X(NOT_READY, 0x92, "no proxy has taken the sign-up yet; nothing was sent")                       \
  X(NOT_READY_IN_TIME, 0x93, "not enough proxies took the sign-up in time")                        \
  X(BUSY, 0x94, "outcomes of other requests fill the buffer: receive them first")                  \
  X(TABLE, 0x95, "table or zone is not among the options, or the table stands in several zones")   \
  X(TOO_MANY, 0x96, "as many requests are in flight, or wait, as the options allow")               \
  X(REQUEST, 0x97, "the command is none that an application sends")                                \
  X(KEY, 0x98, "the command needs a key: it has none, or a field of it is empty")                  \
  X(CONNECTION_LOST, 0x99,                                                                         \
    "the connection was lost after the request was sent: whether it was carried out is not known") \
  X(DIRECTORY, 0x9A, "no directory answers, or none with an answer that can be used")              \
  X(TOO_LARGE, 0x9B, "the request is larger than a connection's buffer: raise buffer_limit")       \
  X(IN_CALLBACK, 0x9C, "this would wait for the thread that it is called on")                      \
  X(FORKED, 0x9D, "the process was forked after the client was made: make another one")            \
  X(CANCELLED, 0x9E, "the request was cancelled, or the client stopped before its outcome")        \
  X(ANSWER_TOO_LARGE, 0x9F, "the packages of the answer together are larger than the options allow")

// CLIENT_ERR_<name>, all negative.
enum ClientError : int {
#define OSTRAND_CLIENT_ENUMERATOR(name, number, text) CLIENT_ERR_##name = -(((number) << 8) | 0x13),
  OSTRAND_CLIENT_ERRORS(OSTRAND_CLIENT_ENUMERATOR)
#undef OSTRAND_CLIENT_ENUMERATOR
};

}  // namespace OstrandService
