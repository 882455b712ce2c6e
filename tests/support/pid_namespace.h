// Tests that start real programs and let the closer (or the ejector's holder search) loose on
// them run in a PID namespace of their own, so that a fault that widens what is signalled can
// reach nothing but the test's own processes.
//
//   TEST(AppCloserReal, ...) {
//     if (testing_support::RunInOwnPidNamespace()) return;  // it ran there, result reported
//     ... start programs, run the closer ...
//   }
#pragma once

namespace testing_support {

// Runs the current test again, alone, in a new test process inside a PID namespace of its own
// (unshare --pid --fork --mount-proc; a user namespace as well when not root), and reports its
// result as this test's. True when it ran there: the caller returns at once. False inside
// that process, and where no namespace can be made (Windows, a system that forbids them): the
// caller then runs the test itself, and the output says so.
bool RunInOwnPidNamespace();

}  // namespace testing_support
