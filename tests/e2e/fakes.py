"""The peers gatr talks to, on the sandbox's own loopback, shared by every end-to-end test.

- certificate (session fixture): a self-signed certificate for localhost and 127.0.0.1, made
  with the openssl command line; .cert and .key paths.
- http_service (fixture): http_service(tls=False, port=0) starts an HTTP(S) server answering
  from a table and recording every request:
      service.answer(path, body, status=200, delay=0, length=None)   body None closes without
      an answer; length announces another Content-Length (one more: a transfer cut short)
      service.requests: [Request(method, path, headers, body)]; service.url, service.port
  unknown paths get 404; with service.token set, a request to a path outside service.public
  whose Authorization header is not that value gets 401. Servers stop at the end of the test.
- ftp_service (fixture): ftp_service(name, read_only=False, read_limit=0, stall_after=0) starts a
  real FTP server (pyftpdlib) in its own process: anonymous users write into .upload (unless
  read_only; at most read_limit bytes a second when given; an upload stops being read, its
  connection left open, once stall_after bytes are in), the user "gatr" reads .control.
"""
import subprocess
import sys
import threading
import time
from dataclasses import dataclass
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path

import pytest


@dataclass
class Request:
    method: str
    path: str
    headers: dict
    body: bytes


@dataclass
class Certificate:
    cert: Path
    key: Path


@pytest.fixture(scope="session")
def certificate(tmp_path_factory):
    folder = tmp_path_factory.mktemp("tls")
    cert, key = folder / "cert.pem", folder / "key.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                    "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
                    "-keyout", str(key), "-out", str(cert)], check=True, capture_output=True)
    return Certificate(cert, key)


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def _serve(self):
        length = int(self.headers.get("Content-Length") or 0)
        body = self.rfile.read(length) if length else b""
        service = self.server.service
        service.requests.append(Request(self.command, self.path, dict(self.headers), body))
        status, answer, delay, length = service.routes.get(self.path, (404, b"not found", 0, None))
        if service.token and self.path not in service.public and \
                self.headers.get("Authorization") != service.token:
            status, answer, delay, length = 401, b'{"detail": "Invalid token."}', 0, None
        time.sleep(delay)
        if answer is None:
            self.close_connection = True
            return
        data = answer.encode() if isinstance(answer, str) else answer
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data) if length is None else length))
        self.end_headers()
        self.wfile.write(data)
        self.close_connection = length is not None

    do_GET = do_POST = do_PUT = do_DELETE = _serve


class Service:
    def __init__(self, certificate=None, port=0):
        self.routes, self.requests, self.token, self.public = {}, [], None, set()
        self.server = ThreadingHTTPServer(("127.0.0.1", port), _Handler)
        self.server.daemon_threads = True
        self.server.service = self
        if certificate is not None:
            import ssl
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(certificate.cert, certificate.key)
            self.server.socket = context.wrap_socket(self.server.socket, server_side=True)
        self.port = self.server.server_address[1]
        self.url = f"{'https' if certificate else 'http'}://127.0.0.1:{self.port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def answer(self, path, body, status=200, delay=0, length=None):
        self.routes[path] = (status, body, delay, length)

    def stop(self):
        self.server.shutdown()
        self.server.server_close()


@pytest.fixture
def http_service(certificate):
    started = []

    def start(tls=False, port=0):
        started.append(Service(certificate if tls else None, port))
        return started[-1]

    yield start
    for service in started:
        service.stop()


class FtpServer:
    def __init__(self, folder: Path, read_only=False, read_limit=0, stall_after=0):
        self.upload, self.control = folder / "upload", folder / "control"
        self.upload.mkdir(parents=True)
        self.control.mkdir()
        self.process = subprocess.Popen([sys.executable, __file__, str(folder), str(int(read_only)),
                                         str(read_limit), str(stall_after)], stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def stop(self):
        self.process.terminate()
        self.process.wait(timeout=10)


@pytest.fixture
def ftp_service(tmp_path):
    started = []

    def start(name="ftp", read_only=False, read_limit=0, stall_after=0):
        started.append(FtpServer(tmp_path / name, read_only, read_limit, stall_after))
        return started[-1]

    yield start
    for server in started:
        server.stop()


def _serve_ftp(folder, read_only, read_limit, stall_after):
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import DTPHandler, FTPHandler, ThrottledDTPHandler
    from pyftpdlib.servers import FTPServer

    authorizer = DummyAuthorizer()
    authorizer.add_anonymous(f"{folder}/upload", perm="elr" if read_only == "1" else "elradfmw")
    authorizer.add_user("gatr", "", f"{folder}/control", perm="elr")
    FTPHandler.authorizer = authorizer
    if int(read_limit):
        ThrottledDTPHandler.read_limit = int(read_limit)
        FTPHandler.dtp_handler = ThrottledDTPHandler
    if int(stall_after):
        class StallingDTPHandler(DTPHandler):
            def handle_read(self):
                super().handle_read()
                if self.tot_bytes_received >= int(stall_after):
                    time.sleep(3600)  # this server's only loop stops: the upload is neither read nor closed
            handle_read_event = handle_read  # the name the loop calls, bound to the base's method
        FTPHandler.dtp_handler = StallingDTPHandler
    import logging
    logging.getLogger("pyftpdlib").setLevel(logging.WARNING)
    server = FTPServer(("127.0.0.1", 0), FTPHandler)
    print(server.socket.getsockname()[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    _serve_ftp(*sys.argv[1:])
