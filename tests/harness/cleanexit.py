# SPDX-License-Identifier: BSD-3-Clause
"""The end every load and fault test asks of the daemon: status 0 on SIGTERM
and no report from a sanitizer (ASan, LSan at exit, UBSan, TSan).

    class MyTest(cleanexit.CleanExit, plinthtest.DaemonTestCase):
        ...
        self.assertCleanExit(daemon)
"""

import re

SANITIZER_REPORT = re.compile(r'ERROR: (Address|Leak|Thread)Sanitizer|runtime error:|WARNING: ThreadSanitizer')


class CleanExit:
    def assertCleanExit(self, daemon, status=0):
        self.assertEqual(daemon.terminate(), status, daemon.output())
        self.assertNoSanitizerReport(daemon)

    def assertNoSanitizerReport(self, daemon):
        self.assertIsNone(SANITIZER_REPORT.search(daemon.output()), daemon.output())
