import ast
import re
from pathlib import Path

import viewtint

PAGE = Path(__file__).parents[2] / "docs" / "python.md"


def test_the_examples_run():
    blocks = re.findall(r"^```python\n(.*?)^```", PAGE.read_text(), re.MULTILINE | re.DOTALL)
    assert blocks
    exec(compile("\n".join(blocks), str(PAGE), "exec"), {})


def test_the_stub_describes_everything_in_the_module():
    stub = Path(viewtint.__file__).with_name("_viewtint.pyi")
    described = {node.name: ast.get_docstring(node) for node in ast.parse(stub.read_text()).body
                 if isinstance(node, (ast.FunctionDef, ast.ClassDef))}
    public = {name for name, value in vars(viewtint).items()
              if getattr(value, "__module__", "") == "viewtint._viewtint"}
    assert public == set(described)
    assert {"Image", "PullPush", "run", "kernels", "gaussianBlur"} < public
    assert all(described.values())
    assert stub.with_name("py.typed").exists()
