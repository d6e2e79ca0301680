"""The OAuth token endpoint and the case service of the support system, on 127.0.0.1.

POST /services/oauth2/token answers a password grant with a token and the instance URL (this
server itself); POST /services/apexrest/case/gatr/v1/<case> answers {"status": 0}. Every request
is recorded as received (path, headers, raw body) so that tests compare exact bytes. Tests choose
how each endpoint answers:

    service.token_answer = "ok" | "500" | "not json"
    service.case_answer  = "ok" | "status 1" | "500" | "not json" | "ok with extras"

Use the `oauth_service` fixture (started, stopped at teardown; .port, .url, .requests).
"""
import json
import threading
from dataclasses import dataclass
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from typing import Dict, List

import pytest

TOKEN_PATH = "/services/oauth2/token"
CASE_PATH = "/services/apexrest/case/gatr/v1/"
ACCESS_TOKEN = "00D5e000000Tok!AQ4AQGd.tEsT_t0ken"
CASE_FAILURE = "Case 01234567 is closed"


@dataclass
class Request:
    method: str
    path: str
    headers: Dict[str, str]
    header_lines: List[str]
    body: bytes


class OAuthService:
    def __init__(self):
        self.requests: List[Request] = []
        self.token_answer = "ok"
        self.case_answer = "ok"
        service = self

        class Handler(BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def log_message(self, *args):
                pass

            def do_POST(self):
                length = int(self.headers.get("Content-Length", "0"))
                body = self.rfile.read(length)
                service.requests.append(Request(
                    "POST", self.path, dict(self.headers.items()),
                    [f"{k}: {v}" for k, v in self.headers.items()], body))
                if self.path == TOKEN_PATH:
                    self.answer(*service.token_reply())
                elif self.path.startswith(CASE_PATH):
                    self.answer(*service.case_reply())
                else:
                    self.answer(404, b'{"error": "not found"}')

            def answer(self, status, body):
                self.send_response(status)
                self.send_header("Content-Type", "application/json")
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

        self.server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.port = self.server.server_address[1]
        self.url = f"http://127.0.0.1:{self.port}"
        self.thread = threading.Thread(target=self.server.serve_forever, daemon=True)
        self.thread.start()

    def token_reply(self):
        if self.token_answer == "500":
            return 500, b'{"error": "invalid_grant"}'
        if self.token_answer == "not json":
            return 200, b"<html>maintenance</html>"
        return 200, json.dumps({"access_token": ACCESS_TOKEN, "token_type": "Bearer",
                                "instance_url": self.url, "id": "x", "scope": ""}).encode()

    def case_reply(self):
        if self.case_answer == "500":
            return 500, b'{"message": "internal error"}'
        if self.case_answer == "not json":
            return 200, b"case updated"
        if self.case_answer == "status 1":
            return 200, json.dumps({"status": 1, "status_message": CASE_FAILURE}).encode()
        if self.case_answer == "ok with extras":
            return 200, b'{"status": 0, "status_message": "ignored", "warnings": [1, 2]}'
        return 200, b'{"status": 0}'

    def stop(self):
        self.server.shutdown()
        self.server.server_close()
        self.thread.join(timeout=10)


@pytest.fixture
def oauth_service():
    service = OAuthService()
    yield service
    service.stop()
