"""A folder of a test's own that plays the host's folder, the volume of the trace log and the temporary one."""

import os
import shutil
import tempfile
import unittest


class HomeTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="tornval-test-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.environment = {
            **{k: v for k, v in os.environ.items() if not k.startswith("TORNVAL_")},
            "TORNVAL_HOME": self.folder, "TORNVAL_HD00": self.folder, "TMPDIR": self.folder,
        }

    def path(self, name):
        return os.path.join(self.folder, name)

    def configure(self, text):
        with open(self.path("TornvalC63.ini"), "wb") as file:
            file.write(text if isinstance(text, bytes) else text.encode())
