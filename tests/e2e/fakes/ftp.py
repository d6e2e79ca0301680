"""A real FTP server on 127.0.0.1 for the upload and update-check tests (pyftpdlib).

Anonymous users land in the upload folder (with write permission unless read_only), the user
"gatr" with an empty password lands in the control folder, read only, where the tests put
".connector" and ".control". The server runs as its own process so that a test can stop it to
play a server that is down.

Use from a test:
    server = FtpServer(tmp / "upload", tmp / "control")   # started; server.port
    ...
    server.stop()
or the `ftp_server` fixture, a factory whose servers stop at teardown.
"""
import argparse
import logging
import subprocess
import sys
from pathlib import Path

import pytest


class FtpServer:
    def __init__(self, upload: Path, control: Path, read_only: bool = False):
        self.upload = Path(upload)
        self.control = Path(control)
        self.upload.mkdir(parents=True, exist_ok=True)
        self.control.mkdir(parents=True, exist_ok=True)
        command = ["/usr/bin/python3", __file__, "--upload", str(self.upload),
                   "--control", str(self.control)]
        if read_only:
            command.append("--read-only")
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError("the FTP server did not start")
        self.port = int(line)

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
            self.process.wait(timeout=10)


@pytest.fixture
def ftp_server(tmp_path):
    started = []

    def start(name="ftp", read_only=False):
        server = FtpServer(tmp_path / name / "upload", tmp_path / name / "control", read_only)
        started.append(server)
        return server

    yield start
    for server in started:
        server.stop()


def main():
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler
    from pyftpdlib.servers import FTPServer

    parser = argparse.ArgumentParser()
    parser.add_argument("--upload", required=True)
    parser.add_argument("--control", required=True)
    parser.add_argument("--read-only", action="store_true")
    args = parser.parse_args()

    logging.basicConfig(level=logging.WARNING)
    authorizer = DummyAuthorizer()
    authorizer.add_anonymous(args.upload, perm="elr" if args.read_only else "elradfmw")
    authorizer.add_user("gatr", "", args.control, perm="elr")
    handler = FTPHandler
    handler.authorizer = authorizer
    handler.banner = "Brimwell support FTP (test)"
    server = FTPServer(("127.0.0.1", 0), handler)
    print(server.socket.getsockname()[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
