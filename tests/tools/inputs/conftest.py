"""The program, clips, and web servers of this machine alone."""

import http.server
import json
import os
import pathlib
import socket
import subprocess
import threading
import time
import urllib.request

import pytest

PROGRAM = os.environ["K7M_PROGRAM"]
DATA = pathlib.Path(__file__).parents[2] / "data"


def k7m(*arguments, stdin=subprocess.DEVNULL, **variables):
    """Runs the program; its output is bytes."""
    environment = {**os.environ, "no_proxy": "*", **variables}
    return subprocess.run(
        [PROGRAM, *map(str, arguments)], stdin=stdin, capture_output=True, env=environment
    )


def without_name(text: bytes):
    """What `info --json` says, but for the name of the file."""
    return {**json.loads(text), "file": None}


@pytest.fixture(scope="session")
def files(tmp_path_factory) -> pathlib.Path:
    """Clips with the movie box at either end; tables and media longer than one request."""
    folder = tmp_path_factory.mktemp("files")
    for name, flags in ("end.mp4", []), ("front.mp4", ["-movflags", "+faststart"]):
        command = [
            "ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=96x96:rate=400:duration=30",
            "-f", "lavfi", "-i", "sine=sample_rate=48000:duration=30", "-c:v", "mjpeg", "-c:a", "aac",
            "-threads", "1", *flags, folder / name,
        ]  # fmt: skip
        subprocess.run(command, check=True)
    # Its movie box is more than 1 MiB long.
    command = [
        "ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=16x16:rate=1000:duration=130",
        "-c:v", "mpeg4", "-bf", "1", "-threads", "1", folder / "long-end.mp4",
    ]  # fmt: skip
    subprocess.run(command, check=True)
    copy = ["-c", "copy", "-movflags", "+faststart", folder / "long-front.mp4"]
    subprocess.run(["ffmpeg", "-v", "error", "-i", folder / "long-end.mp4", *copy], check=True)
    fragmented = ["-c", "copy", "-movflags", "empty_moov+default_base_moof", "-frag_duration", "1000000"]
    command = ["ffmpeg", "-v", "error", "-i", folder / "front.mp4", *fragmented, folder / "parts.mp4"]
    subprocess.run(command, check=True)
    (folder / "packet").write_bytes(bytes(5000))
    run = k7m("remux", folder / "front.mp4", folder / "packet.mp4", "--fragmented=1",
              "--metadata", folder / "packet")  # fmt: skip
    assert run.returncode == 0, run.stderr
    content = (folder / "front.mp4").read_bytes()
    (folder / "cut.mp4").write_bytes(content[: len(content) // 2])
    (folder / "empty.mp4").write_bytes(b"")
    run = k7m("fragment", DATA / "h264-bframes-aac.mp4", folder / "live.k7r",
              "--index", folder / "live.idx")  # fmt: skip
    assert run.returncode == 0, run.stderr
    return folder


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Nginx:
    """nginx on a port of its own, with a log of the requests."""

    CONFIGURATION = """
        daemon off; master_process off; pid {folder}/pid; error_log {folder}/errors;
        events {{}}
        http {{
          log_format short '$request_uri $status "$http_range" $body_bytes_sent';
          access_log {folder}/log short;
          client_body_temp_path {folder}/a; proxy_temp_path {folder}/b; fastcgi_temp_path {folder}/c;
          uwsgi_temp_path {folder}/d; scgi_temp_path {folder}/e;
          server {{
            listen 127.0.0.1:{port};
            location / {{ root {root}; }}
            location /whole/ {{ alias {root}/; max_ranges 0; }}
            location /moved/ {{ rewrite ^/moved/(.*)$ /$1 redirect; }}
            location /forbidden/ {{ deny all; }}
          }}
        }}
    """

    def __init__(self, folder: pathlib.Path, root: pathlib.Path):
        port = free_port()
        self.url = f"http://127.0.0.1:{port}"
        self.log = folder / "log"
        configuration = folder / "nginx.conf"
        configuration.write_text(
            self.CONFIGURATION.format(folder=folder, port=port, root=root)
        )
        program = "/usr/sbin/nginx"
        self.process = subprocess.Popen(
            [program, "-p", folder, "-c", configuration, "-e", folder / "errors"]
        )
        for _ in range(100):
            try:
                socket.create_connection(("127.0.0.1", port), 1).close()
                return
            except ConnectionRefusedError:
                assert self.process.poll() is None, "nginx does not start"
                time.sleep(0.05)
        raise TimeoutError("nginx does not answer")

    def requests(self) -> list[str]:
        """The log since the last call. One worker answers, so a request of one's own ends it."""
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        opener.open(self.url + "/empty.mp4?end").read()
        while not self.log.exists() or "?end" not in self.log.read_text():
            time.sleep(0.01)
        lines = self.log.read_text().splitlines()[:-1]
        os.truncate(self.log, 0)
        return lines

    def stop(self):
        self.process.terminate()
        self.process.wait(10)


@pytest.fixture(scope="session")
def nginx(tmp_path_factory, files):
    server = Nginx(tmp_path_factory.mktemp("nginx"), files)
    yield server
    server.stop()


@pytest.fixture
def liar():
    """A server whose answers are made by a function: it gets the handler, the number of the
    request, and the begin and end of the range."""

    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def do_GET(self):
            begin, last = self.headers["Range"].removeprefix("bytes=").split("-")
            self.server.count += 1
            self.server.answer(self, self.server.count, int(begin), int(last) + 1)

        def send(self, status: int, body: bytes, length=None, **headers):
            self.send_response(status)
            self.send_header("Content-Length", str(len(body) if length is None else length))
            for name, value in headers.items():
                self.send_header(name.replace("_", "-"), value)
            self.end_headers()
            try:
                self.wfile.write(body)
            except ConnectionError:  # The program has heard enough.
                self.close_connection = True

        def log_message(self, *_arguments):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.count = 0
    server.url = f"http://127.0.0.1:{server.server_port}/clip.mp4"
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    yield server
    server.shutdown()
    thread.join()
    server.server_close()
