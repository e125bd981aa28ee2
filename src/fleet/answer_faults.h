// What the faults do to the bytes of an answer.
//
// Threads: no state but the random generator's, which the caller owns.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "fleet/proxy_faults.h"

namespace OstrandFleet {

using FaultRandom = std::minstd_rand;

// The bytes that a fault which changes bytes makes of a whole answer; the answer itself for a fault
// that does not (those that double it, move it, cut it), or where it has nothing to change.
std::string Spoil(AnswerFault fault, std::string_view frame, FaultRandom& random);

// Any bytes.
std::string RandomBytes(size_t len, FaultRandom& generator);

// Whether answers of this command may come in several packages.
bool MayHaveMorePackages(std::string_view frame);
// Says in such an answer that more packages follow and which number it has.
void SetPackageNumber(std::string& frame, uint32_t number);
uint32_t PackageNumber(std::string_view frame);

}  // namespace OstrandFleet
