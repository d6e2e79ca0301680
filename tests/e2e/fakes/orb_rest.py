"""A stand-in for the backup product's local REST service: HTTPS on 127.0.0.1 inside the test
namespace, answering the product's endpoints from JSON fixture files, checking the
"Authorization: Token ..." header, and failing on demand.

Fixtures
- `orb_certificate` (session): a self-signed certificate for "localhost", made with the
  openssl command line.
- `orb_service`: call it to start the service for one test:
      service = orb_service(fixture_dir, token="...", port=13581)
  then, per endpoint name ("version", "notify", "smtp", "system", "volume", "destination",
  "backup", "threads"), service.fail(name, mode) with mode one of
      "500"            status 500 with a JSON error body
      "not-json"       status 200 with an HTML page
      "too-large"      status 200 with valid JSON of more than 16 KiB
      ("slow", s)      the fixture answer after s seconds
      "close"          the connection is closed without an answer
  service.requests lists (path, authorization header or None) in arrival order. The service is
  stopped at the end of the test.
"""
import json
import os
import ssl
import subprocess
import tempfile
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path

import pytest

ENDPOINTS = ("notify", "smtp", "system", "volume", "destination", "backup")


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, format, *args):  # keep pytest output clean
        pass

    def _send(self, status, body, content_type="application/json"):
        data = body.encode() if isinstance(body, str) else body
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def _endpoint(self):
        """The endpoint name of the path, or None for a path the product does not serve."""
        parts = [p for p in self.path.split("/") if p]
        service = self.server.orb
        if parts == ["orb", "version"]:
            return "version"
        if parts == ["orb", "threads"]:
            return "threads"
        if len(parts) == 3 and parts[0] == "orb" and parts[2] in ENDPOINTS:
            return parts[2] if parts[1] == service.api_version else None
        return None

    def do_GET(self):
        service = self.server.orb
        authorization = self.headers.get("Authorization")
        with service.lock:
            service.requests.append((self.path, authorization))
        name = self._endpoint()
        if name is None:
            self._send(404, json.dumps({"detail": "Not found."}))
            return
        # The version is public; everything else needs the administrator's token.
        if name != "version" and authorization != "Token " + service.token:
            self._send(401, json.dumps({"detail": "Invalid token."}))
            return
        mode = service.failures.get(name)
        if isinstance(mode, tuple) and mode[0] == "slow":
            # A stopped service drops the waiting request at once, so that no connection
            # outlives the test that asked for it.
            if service.stopping.wait(mode[1]):
                self.close_connection = True
                return
            mode = None
        if mode == "500":
            self._send(500, json.dumps({"detail": "internal error"}))
        elif mode == "not-json":
            self._send(200, "<html><body>maintenance</body></html>", "text/html")
        elif mode == "too-large":
            self._send(200, json.dumps([{"uuid": "x" * 64, "pad": "y" * 1000}] * 20))
        elif mode == "close":
            self.close_connection = True
            self.wfile.flush()
            self.connection.shutdown(2)
        else:
            self._send(200, (service.fixture / (name + ".json")).read_text())


class OrbService:
    def __init__(self, certificate, fixture, token, port):
        self.fixture = Path(fixture)
        self.token = token
        self.api_version = json.loads((self.fixture / "version.json").read_text()).get(
            "api_version", "")[:15]
        self.failures = {}
        self.requests = []
        self.lock = threading.Lock()
        self.stopping = threading.Event()
        self.server = ThreadingHTTPServer(("127.0.0.1", port), _Handler)
        self.server.daemon_threads = True
        self.server.orb = self
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(*certificate)
        self.server.socket = context.wrap_socket(self.server.socket, server_side=True)
        self.port = self.server.server_address[1]
        self.thread = threading.Thread(target=self.server.serve_forever, daemon=True)
        self.thread.start()

    def fail(self, name, mode):
        self.failures[name] = mode

    def paths(self):
        with self.lock:
            return [path for path, _ in self.requests]

    def stop(self):
        self.stopping.set()
        self.server.shutdown()
        self.server.server_close()


@pytest.fixture(scope="session")
def orb_certificate():
    folder = Path(tempfile.mkdtemp(prefix="gatr-orb-cert-"))
    key, cert = folder / "key.pem", folder / "cert.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", str(key),
                    "-out", str(cert), "-days", "2", "-subj", "/CN=localhost"],
                   check=True, capture_output=True)
    yield (str(cert), str(key))
    for p in (key, cert):
        p.unlink()
    folder.rmdir()


@pytest.fixture
def orb_service(orb_certificate):
    started = []

    def start(fixture, token="orb-admin-token", port=13581):
        service = OrbService(orb_certificate, fixture, token, port)
        started.append(service)
        return service

    yield start
    for service in started:
        service.stop()
