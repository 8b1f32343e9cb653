import re
from pathlib import Path

PAGE = Path(__file__).parents[2] / "docs" / "python.md"


def test_the_examples_run():
    blocks = re.findall(r"^```python\n(.*?)^```", PAGE.read_text(), re.MULTILINE | re.DOTALL)
    assert blocks
    exec(compile("\n".join(blocks), str(PAGE), "exec"), {})
