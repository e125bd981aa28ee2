// Counts what the calling thread allocates with operator new, and makes one allocation fail.
//
// Every program that links the kit has its operator new and delete replaced (all forms). They do
// what the originals do, unless the calling thread has an AllocationFaults alive.
//
//   AllocationFaults faults;
//   faults.FailNothrow(2);
//   EXPECT_EQ(-9747, router.Init(...));
//   EXPECT_TRUE(faults.struck());
//
// The fakes' own bookkeeping is never counted and never fails: they put it into
// UnwatchedAllocations. Threads: each thread counts and fails for itself.
#pragma once

namespace OstrandFakes {

// Watches the calling thread from construction to the end of its scope; one at a time a thread.
class AllocationFaults {
 public:
  AllocationFaults();
  ~AllocationFaults();
  AllocationFaults(const AllocationFaults&) = delete;
  AllocationFaults& operator=(const AllocationFaults&) = delete;

  // The n-th non-throwing allocation from now on (1: the next) answers null.
  void FailNothrow(int n);
  // The n-th throwing allocation from now on (1: the next) throws std::bad_alloc.
  void FailThrowing(int n);
  // Whether a failure that was asked for has happened.
  bool struck() const;

  // Allocations since construction, failed ones included.
  int nothrow_count() const;
  int throwing_count() const;
  int count() const { return nothrow_count() + throwing_count(); }
  // Successful allocations less deallocations since construction: 0 when all was given back.
  int outstanding() const;
};

// Suspends watching, counting and failing, of the calling thread for its scope. Nests.
class UnwatchedAllocations {
 public:
  UnwatchedAllocations();
  ~UnwatchedAllocations();
  UnwatchedAllocations(const UnwatchedAllocations&) = delete;
  UnwatchedAllocations& operator=(const UnwatchedAllocations&) = delete;
};

}  // namespace OstrandFakes
