"""A private copy of the staged program folder (binary, etc, var, locale) whose
etc/gatr_config.json points at the test's own servers."""
import json
import shutil
from pathlib import Path

from conftest import STAGE


def copy_program(scratch: Path, extra_binaries=()) -> Path:
    folder = Path(scratch) / "program"
    shutil.copytree(STAGE, folder, symlinks=True)
    for binary in extra_binaries:
        shutil.copy2(binary, folder / Path(binary).name)
    return folder


def server(region: str, port: int, url: str = "ftp://127.0.0.1", use_secure: bool = False):
    return {"region": region, "url": url, "port": port, "use_secure": use_secure}


def write_config(folder: Path, servers, control: int = 0):
    document = {"ftp_servers": list(servers), "control_ftp_server": control}
    (Path(folder) / "etc" / "gatr_config.json").write_text(json.dumps(document, indent=2))
