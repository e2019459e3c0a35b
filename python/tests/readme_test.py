"""The examples of the README run as they stand there."""

import re
import subprocess
import sys

from conftest import frame_hashes


def test_the_examples_of_the_readme_run(root, clips, tmp_path):
    readme = (root / "README.md").read_text()
    examples = re.findall(r"^```python\n(.*?)^```$", readme, re.MULTILINE | re.DOTALL)
    assert examples
    clip = tmp_path / "clip.mp4"
    clip.write_bytes((clips / "video-only.mp4").read_bytes())
    for example in examples:
        result = subprocess.run(
            [sys.executable, "-c", example], cwd=tmp_path, capture_output=True, text=True
        )
        assert result.returncode == 0, result.stderr
        assert "1 vide avc1" in result.stdout
    assert frame_hashes(tmp_path / "copy.mp4") == frame_hashes(clip)
