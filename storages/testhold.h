// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTHOLD_H
#define PLINTHD_TESTHOLD_H

// A seam of the test build (PLINTHD_TEST_SEAMS, set when the tests are built;
// never in a package): a worker that reaches a medium stops there while the
// environment variable `variable` names a file that does not exist yet, and
// goes on when the test creates it. That is how tests make a slow medium (a
// quota source, a walk) out of a fast one. Elsewhere this costs nothing.
namespace TestHold {

#ifdef PLINTHD_TEST_SEAMS
void waitFor(const char *variable);
#else
inline void waitFor(const char *) { }
#endif

} // namespace TestHold

#endif // PLINTHD_TESTHOLD_H
