"""Connector files as the support service's operator makes them: each credential enciphered
with AES-256-CBC by the openssl command line under the build's connector key, a random
16-byte vector in front, the whole base64-encoded. gatr itself is never used to make them."""
import base64
import json
import os
import subprocess
from pathlib import Path

from conftest import STAGE

CREDENTIALS = {
    "client_id": "3MVG9gatrTestClient.Id_0123456789",
    # Characters a form encoder would change: the request must carry them unchanged.
    "client_secret": "s3cr&t+value/with=odd chars",
    "username": "support.api@brimwell.example",
    "password": "P@ss w0rd%21",
}


def build_key() -> str:
    """The key the staged build was made with, from its CMake cache."""
    cache = (STAGE.parent / "CMakeCache.txt").read_text()
    for line in cache.splitlines():
        if line.startswith("GATR_CONNECTOR_KEY:"):
            return line.split("=", 1)[1]
    raise AssertionError("GATR_CONNECTOR_KEY not in the build's CMake cache")


def encipher(plain: bytes, key: str, iv: bytes = None) -> str:
    iv = iv if iv is not None else os.urandom(16)
    cipher = subprocess.run(
        ["openssl", "enc", "-aes-256-cbc", "-K", key.encode().hex(), "-iv", iv.hex()],
        input=plain, capture_output=True, check=True).stdout
    return base64.b64encode(iv + cipher).decode()


def connector_text(authentication_url: str, key: str = None, **overrides) -> str:
    """The .connector JSON; overrides replace enciphered values by raw text."""
    key = key or build_key()
    document = {"authentication_url": authentication_url, "grant_type": "password"}
    for name, value in CREDENTIALS.items():
        document[name] = encipher(value.encode(), key)
    document.update(overrides)
    return json.dumps(document, indent=2)


def write_connector(folder: Path, text: str):
    (Path(folder) / ".connector").write_text(text)
