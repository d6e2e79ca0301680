"""An HTTP peer on 127.0.0.1 that serves one file for the update check's download.

mode "complete": a normal 200 answer. mode "partial": the whole file, but announced one byte
longer, so the client sees the connection end early: the transfer fails after every byte of
the file was written. Requests are recorded (.requests: request lines).
"""
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

import pytest


class DownloadPeer:
    def __init__(self, content: bytes, mode: str = "complete"):
        self.content, self.mode, self.requests = content, mode, []
        peer = self

        class Handler(BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def log_message(self, *args):
                pass

            def do_GET(self):
                peer.requests.append(self.requestline)
                extra = 1 if peer.mode == "partial" else 0
                self.send_response(200)
                self.send_header("Content-Type", "application/gzip")
                self.send_header("Content-Length", str(len(peer.content) + extra))
                self.send_header("Connection", "close")
                self.end_headers()
                self.wfile.write(peer.content)
                self.close_connection = True

        self.server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.port = self.server.server_address[1]
        self.thread = threading.Thread(target=self.server.serve_forever, daemon=True)
        self.thread.start()

    def stop(self):
        self.server.shutdown()
        self.server.server_close()
        self.thread.join(timeout=10)


@pytest.fixture
def download_peer():
    started = []

    def start(content: bytes, mode: str = "complete"):
        peer = DownloadPeer(content, mode)
        started.append(peer)
        return peer

    yield start
    for peer in started:
        peer.stop()
