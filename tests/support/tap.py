#!/usr/bin/env python3
"""Runs a unittest file and reports each case in the Test Anything Protocol.

Usage: tap.py FILE_test.py [NAME...]
"""
import importlib.util
import os
import sys
import traceback
import unittest


class TapResult(unittest.TestResult):
    """One line a case; what a failing case said follows as comments."""

    def __init__(self):
        super().__init__()
        self.count = 0

    def _line(self, verdict, test, text="", directive=""):
        self.count += 1
        name = test.id().split(".", 1)[-1].replace("#", "")
        print(f"{verdict} {self.count} {name}{directive}")
        for line in text.splitlines():
            print(f"# {line}")
        sys.stdout.flush()

    @staticmethod
    def _text(err):
        return "".join(traceback.format_exception(*err))

    def addSuccess(self, test):
        self._line("ok", test)

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._line("not ok", test, self._text(err))

    def addError(self, test, err):
        super().addError(test, err)
        self._line("not ok", test, self._text(err))

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self._line("ok", test, directive=f" # SKIP {reason}")

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self._line("not ok", subtest, self._text(err))

    def addUnexpectedSuccess(self, test):
        super().addUnexpectedSuccess(test)
        self._line("not ok", test, "was expected to fail")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    path, names = os.path.abspath(sys.argv[1]), sys.argv[2:]
    sys.path.insert(0, os.path.dirname(path))
    spec = importlib.util.spec_from_file_location(os.path.basename(path)[:-3], path)
    module = importlib.util.module_from_spec(spec)
    sys.modules[spec.name] = module
    spec.loader.exec_module(module)
    loader = unittest.defaultTestLoader
    suite = loader.loadTestsFromNames(names, module) if names else loader.loadTestsFromModule(module)
    result = TapResult()
    suite.run(result)
    print(f"1..{result.count}")
    sys.exit(0 if result.wasSuccessful() and result.count else 1)


if __name__ == "__main__":
    main()
