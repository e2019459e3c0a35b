"""Inputs on a web server: few requests, never the whole file, and the same results as of a file."""

import re
import ssl
import subprocess

import pytest
from conftest import k7m, without_name


def ranges(requests: list[str]) -> list[tuple[int, int]]:
    found = [re.search(r' 206 "bytes=(\d+)-(\d+)"', line) for line in requests]
    assert all(found), requests
    return [(int(f[1]), int(f[2]) + 1) for f in found]


@pytest.mark.parametrize(
    "name, most", [("front.mp4", 1), ("end.mp4", 2), ("long-front.mp4", 2), ("long-end.mp4", 4)]
)
def test_info_takes_few_requests(nginx, files, name, most):
    nginx.requests()
    run = k7m("info", "--json", f"{nginx.url}/{name}")
    requests = nginx.requests()
    assert run.returncode == 0, run.stderr
    assert without_name(run.stdout) == without_name(k7m("info", "--json", files / name).stdout)
    assert 1 <= len(requests) <= most, requests
    fetched = ranges(requests)
    assert max(end - begin for begin, end in fetched) <= 8 << 20
    if not name.startswith("long"):
        assert sum(end - begin for begin, end in fetched) < (files / name).stat().st_size / 2
    covered = sorted(fetched)
    assert all(a[1] <= b[0] for a, b in zip(covered, covered[1:])), "fetched twice"


@pytest.mark.parametrize("name, packet", [("parts.mp4", None), ("packet.mp4", 5000)])
def test_info_does_not_walk_over_fragments_on_a_server(nginx, files, name, packet):
    size = (files / name).stat().st_size
    expected = without_name(k7m("info", "--json", files / name).stdout)
    count = expected["document"]["fragmentCount"]
    assert count >= 30
    nginx.requests()
    run = k7m("info", "--json", f"{nginx.url}/{name}")
    fetched = ranges(nginx.requests())
    assert run.returncode == 0, run.stderr
    assert len(fetched) <= 3
    assert sum(end - begin for begin, end in fetched) < size / 10
    seen = without_name(run.stdout)
    assert seen.pop("metadataLength") == packet
    assert expected.pop("metadataLength") == (packet or 0)
    places = [(seen["document"], expected["document"]), *zip(seen["tracks"], expected["tracks"])]
    for known, full in places:
        assert known["durationFrom"] == "header"
        for field in "durationFrom", "duration", "seconds":  # Those of the header stay.
            del known[field], full[field]
        for field in {"fragmentCount", "sampleCount", "mediaBytes", "bitRate"} & known.keys():
            assert known.pop(field) is None and full.pop(field) > 0
    assert seen == expected


def test_info_says_that_it_counts_no_fragments_on_a_server(nginx):
    text = k7m("info", nginx.url + "/parts.mp4").stdout.decode()
    assert "yes, fragments not counted over http (see --count-fragments)" in text
    assert "none before the fragments; not looked for behind" in text
    assert text.count("by the header, samples not counted\n") == 3
    for label in "samples", "media bytes", "bit rate":
        assert len(re.findall(rf"^  {label} +not counted over http$", text, re.MULTILINE)) == 2


def test_info_counts_fragments_on_a_server_when_it_is_asked_to(nginx, files):
    run = k7m("info", "--json", "--count-fragments", nginx.url + "/parts.mp4")
    assert without_name(run.stdout) == without_name(
        k7m("info", "--json", files / "parts.mp4").stdout
    )


@pytest.mark.parametrize(
    "command",
    [
        ["samples", "FILE", "--csv"],
        ["samples", "FILE", "--media", "--track", "2"],
        ["extract", "FILE", "--track", "1", "-o", "-"],
        ["extract", "FILE", "--track", "2", "-o", "-"],
        ["tree", "FILE"],
        ["verify", "FILE"],
    ],
)
@pytest.mark.parametrize("name", ["front.mp4", "end.mp4", "cut.mp4"])
def test_results_are_those_of_the_file(nginx, files, command, name):
    def run(place):
        done = k7m(*(str(place) if word == "FILE" else word for word in command))
        return done.returncode, done.stdout, done.stderr.replace(str(place).encode(), b"FILE")

    expected = run(files / name)
    assert expected[0] == 0 or name == "cut.mp4" or command[0] == "verify"
    assert run(f"{nginx.url}/{name}") == expected


def test_copies_are_those_of_the_file(nginx, files, tmp_path):
    for command, name in ("remux", "copy.mp4"), ("fragment", "copy.k7r"):
        local, remote = tmp_path / f"local-{name}", tmp_path / f"remote-{name}"
        assert k7m(command, files / "end.mp4", local).returncode == 0
        assert k7m(command, nginx.url + "/end.mp4", remote).returncode == 0
        assert remote.read_bytes() == local.read_bytes()


def test_a_fragment_is_served_from_a_server(nginx, files, tmp_path):
    live, index = nginx.url + "/live.k7r", nginx.url + "/live.idx"
    expected = k7m("query", files / "live.k7r", "--fragment", "2").stdout
    assert expected[4:8] == b"afra"
    assert k7m("query", live, "--fragment", "2").stdout == expected
    assert k7m("query", live, "--index", index, "--fragment", "2").stdout == expected
    assert k7m("index", live, "-o", tmp_path / "idx").returncode == 0
    assert (tmp_path / "idx").read_bytes() == (files / "live.idx").read_bytes()


def test_reading_all_of_a_file_fetches_it_once(nginx, files):
    nginx.requests()
    assert k7m("extract", nginx.url + "/front.mp4", "--track", "1", "-o", "/dev/null").returncode == 0
    fetched = ranges(nginx.requests())
    size = (files / "front.mp4").stat().st_size
    assert sum(end - begin for begin, end in fetched) <= size
    assert len(fetched) <= 5 + size / (8 << 20)


@pytest.mark.parametrize(
    "place, message",
    [
        ("none.mp4", "the server has no such file (status 404)"),
        ("forbidden/front.mp4", "the server refuses access (status 403)"),
        ("whole/front.mp4", "the server does not send parts of the file"),
        ("empty.mp4", "kQiroK7MErrorNoMovieBox"),
    ],
)
def test_what_the_server_refuses_is_told(nginx, place, message):
    run = k7m("info", f"{nginx.url}/{place}")
    assert run.returncode == 1 and run.stdout == b""
    assert run.stderr.decode().startswith(f"k7m: {nginx.url}/{place}: ")
    assert message in run.stderr.decode()


def test_a_server_without_ranges_is_not_read_to_the_end(nginx, files):
    nginx.requests()
    k7m("info", nginx.url + "/whole/front.mp4")
    (request,) = nginx.requests()
    assert int(request.split()[-1]) < (files / "front.mp4").stat().st_size


def test_redirections_are_followed(nginx, files):
    run = k7m("info", "--json", nginx.url + "/moved/front.mp4")
    assert without_name(run.stdout) == without_name(
        k7m("info", "--json", files / "front.mp4").stdout
    )


def test_no_server_is_told():
    run = k7m("info", "http://127.0.0.1:1/clip.mp4")
    assert run.returncode == 1
    assert b"k7m: http://127.0.0.1:1/clip.mp4: Failed to connect" in run.stderr


def serve(content: bytes, **headers):
    """Answers like an honest server."""

    def answer(handler, _count, begin, end):
        body = content[begin:end]
        place = f"bytes {begin}-{begin + len(body) - 1}/{len(content)}"
        handler.send(206, body, Content_Range=place, **headers)

    return answer


@pytest.fixture
def content(files) -> bytes:
    return (files / "end.mp4").read_bytes()


def test_an_honest_server_needs_no_tag(liar, content):
    liar.answer = serve(content)
    assert k7m("info", liar.url).returncode == 0


@pytest.mark.parametrize(
    "change",
    [
        {"ETag": '"b"'},
        {"Last-Modified": "Tue, 02 Jan 2024 00:00:00 GMT"},
        {"length": 1},
    ],
)
def test_a_file_that_changes_is_told(liar, content, change):
    before = {"ETag": '"a"', "Last-Modified": "Mon, 01 Jan 2024 00:00:00 GMT"}
    later = {**before, **change}
    longer = bytes(later.pop("length", 0))

    def answer(handler, count, begin, end):
        server = serve(content, **before) if count == 1 else serve(content + longer, **later)
        server(handler, count, begin, end)

    liar.answer = answer
    run = k7m("info", liar.url)
    assert run.returncode == 1
    assert b"the file on the server has changed while it was read" in run.stderr


def test_a_file_that_becomes_shorter_is_told(liar, content):
    def answer(handler, count, begin, end):
        if count == 1:
            serve(content)(handler, count, begin, end)
        else:
            handler.send(416, b"", Content_Range="bytes */10")

    liar.answer = answer
    assert b"the file on the server has become shorter" in k7m("info", liar.url).stderr


@pytest.mark.parametrize("fatal_request", [1, 2])
def test_a_lost_connection_is_told(liar, content, fatal_request):
    def answer(handler, count, begin, end):
        if count < fatal_request:
            return serve(content)(handler, count, begin, end)
        end = min(end, len(content))
        place = f"bytes {begin}-{end - 1}/{len(content)}"
        handler.send(206, content[begin : begin + 50], end - begin, Content_Range=place)
        handler.close_connection = True

    liar.answer = answer
    run = k7m("info", liar.url)
    assert run.returncode == 1
    assert b"the connection to the server was lost: " in run.stderr


@pytest.mark.parametrize(
    "place",
    ["bytes 5-104/9999", "bytes 0-99/*", "bytes 0-98/9999", "bytes 0-100/9999", "pages 1-2/9", ""],
)
def test_another_range_than_asked_for_is_refused(liar, place):
    liar.answer = lambda handler, *_: handler.send(206, bytes(100), Content_Range=place)
    run = k7m("info", liar.url)
    assert run.returncode == 1
    assert b"another part of the file than it was asked for" in run.stderr


def test_more_than_asked_for_is_not_taken(liar):
    place = "bytes 0-131071/99999999"
    liar.answer = lambda handler, *_: handler.send(206, bytes(9_000_000), Content_Range=place)
    assert b"the server sends more than it was asked for" in k7m("info", liar.url).stderr


def test_a_server_that_fails_is_told(liar):
    liar.answer = lambda handler, *_: handler.send(503, b"busy")
    assert b"the server does not deliver the file (status 503)" in k7m("info", liar.url).stderr


def test_redirections_lead_to_web_servers_only(liar, files):
    target = f"file://{files}/front.mp4"
    liar.answer = lambda handler, *_: handler.send(302, b"", Location=target)
    run = k7m("info", liar.url)
    assert run.returncode == 1 and b"file" in run.stderr


@pytest.fixture
def certificate(liar, tmp_path) -> str:
    """Makes the server speak https, with a certificate that nobody has signed."""
    key, certificate = tmp_path / "key", tmp_path / "certificate"
    subprocess.run(
        [
            "openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost",
            "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", certificate,
        ],
        check=True, capture_output=True,
    )  # fmt: skip
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    liar.socket = context.wrap_socket(liar.socket, server_side=True)
    liar.handle_error = lambda *_: None  # The program breaks the handshake off.
    liar.url = liar.url.replace("http:", "https:")
    return str(certificate)


@pytest.mark.parametrize("authorities", [{}, {"SSL_CERT_FILE": ""}])
def test_an_unknown_certificate_is_refused(liar, content, certificate, authorities):
    liar.answer = serve(content)
    run = k7m("info", liar.url, **authorities)
    assert run.returncode == 1 and b"certificate" in run.stderr, run.stderr


def test_a_certificate_that_the_user_trusts_is_taken(liar, content, files, certificate):
    liar.answer = serve(content)
    run = k7m("info", "--json", liar.url, SSL_CERT_FILE=certificate)
    assert run.returncode == 0, run.stderr
    assert without_name(run.stdout) == without_name(k7m("info", "--json", files / "end.mp4").stdout)


def test_a_trusted_certificate_is_no_other_server_s(liar, content, certificate):
    liar.answer = serve(content)
    run = k7m("info", liar.url.replace("127.0.0.1", "localhost"), SSL_CERT_FILE=certificate)
    assert run.returncode == 1 and b"certificate" in run.stderr, run.stderr
