"""Modules: started, ended in order whatever fails, and answered by all three callbacks."""

import os
import shutil
import unittest

from service import Service


TEST_MODULE = os.environ["QV_TEST_MODULE"]


class Modules(unittest.TestCase):
    def start(self, service, *names, **expected):
        """Starts the service with copies of the test module; "missing" has no file."""
        options = []
        for name in names:
            file = service.path(f"lib{name}.so")
            if name != "missing":
                shutil.copy2(TEST_MODULE, file)
            options += ["--module", file]
        return service.start(*options, **expected)

    def test_each_is_ended_in_order_whatever_fails(self):
        failed = {"expect_plain": False, "expect_secure": False}
        for names, code, events in (
                (("one", "two"), 0, ["one 0", "two 0", "one 2", "two 2", "one 3", "two 3"]),
                (("one", "refuses"), 1, ["one 0", "refuses 0", "refuses 3", "one 2", "one 3"]),
                (("one", "missing"), 1, ["one 0", "one 2", "one 3"]),
                (("refuses", "one"), 1, ["refuses 0", "refuses 3"])):
            with self.subTest(names), Service() as s:
                self.start(s, *names, **({} if code == 0 else failed))
                s.stop() if code == 0 else s.finish(code)
                trace = s.path("trace").read_text().replace("action ", "").splitlines()
                self.assertEqual([line for line in trace if "unloaded" not in line], events)
                last = dict(line.split() for line in trace)
                self.assertEqual(set(last.values()), {"unloaded"}, "nothing comes behind it")

    def test_all_three_callbacks_answer(self):
        with Service() as s:
            self.start(s, "one")
            s.checked = False
            for request, expected in (
                    ("startmDNS", "get 0 , set 0, get 0 "),
                    ("restartService", "get 0 , set 0, get 0 "),
                    ("nonsense", "get -1 , set -1, get -1 ")):
                with self.subTest(request):
                    reply = s.request("POST", "/qtp/", request)[2].decode()
                    self.assertEqual(reply, expected)
            reply = s.request("POST", "/qtp/", "getBinaryFileInfo")[2].decode()
            self.assertRegex(reply, r'^get 0 (\[{"date":.*}\]), set -1, get 0 \1$')


if __name__ == "__main__":
    unittest.main()
