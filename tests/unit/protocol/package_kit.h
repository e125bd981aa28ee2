// What the protocol's tests share: bytes from hex, packing and unpacking in one line, random
// packages, and the comparison of packages.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/codec.h"

namespace ostrand_protocol_cs {

// The bytes of a text of hex digits; blanks and line ends are passed over.
std::string FromHex(std::string_view hex);
std::string ToHex(std::string_view bytes);

// Every command of the list, requests and answers.
std::vector<uint32_t> AllCommands();

// An empty package of a command on the heap.
std::unique_ptr<OStrandPkg> NewPackage(uint32_t cmd);

// The codec's own code in `ret`, the frame if it is 0.
std::string Pack(const OStrandPkg& pkg, int* ret = nullptr, int version = 127);

// Unpacks from an allocation of exactly the frame's size, so that the address sanitizer sees a read
// behind its end.
int Unpack(OStrandPkg& pkg, std::string_view frame);

// Sets a text, which must fit.
template <size_t kCapacity>
void SetText(char (&text)[kCapacity], std::string_view value) {
  ASSERT_LT(value.size(), kCapacity);
  std::memcpy(text, value.data(), value.size());
  text[value.size()] = '\0';
}

void SetTableName(OStrandPkgHead& head, std::string_view name);
void SetUserBuff(OStrandPkgHead& head, std::string_view bytes);
void AddKeyField(OStrandKeySet& keys, std::string_view name, std::string_view value);

// Fills head and body for the command with values of all sizes, small ones more often.
void FillRandom(OStrandPkg& pkg, uint32_t cmd, std::mt19937& random);

// Whether two packages carry the same, field by field; lengths of head and body aside.
::testing::AssertionResult SamePackage(const OStrandPkg& a, const OStrandPkg& b);
::testing::AssertionResult SameKeySet(const OStrandKeySet& a, const OStrandKeySet& b);
::testing::AssertionResult SameRecords(const OStrandRecords& a, const OStrandRecords& b);

}  // namespace ostrand_protocol_cs
