"""The colour matching node with its controls, on pictures in memory."""

import difflib
from dataclasses import dataclass
from typing import Any, Optional, Sequence, Tuple, Union

from . import _viewtint
from .errors import Error


def _text(value: Any) -> str:
    return ("on" if value else "off") if isinstance(value, bool) else str(value)


@dataclass(frozen=True)
class Control:
    """A control as the node declares it, and what it is set to now."""

    name: str
    label: str
    default: Union[bool, int, float]
    value: Union[bool, int, float]
    enabled: bool  #: whether its value has an effect together with the others
    minimum: Optional[float]
    maximum: Optional[float]
    choices: Tuple[str, ...]  #: labels of an enumeration, by value
    tooltip: str


class Node:
    """`Q_ViewTint` with all its controls as attributes::

        node = viewtint.Node()
        node.matchingMode = "Local Matching"   # or 1
        node.samples = 3
        corrected = node.render(left, right, disparity, [occlusion])

    Enumerations take their label or its number and are read as numbers. A value out of range raises ValueError, a name
    that is no control AttributeError.
    """

    messages: Sequence[str]

    def __init__(self, **controls: Any):
        object.__setattr__(self, "_node", _viewtint._Node())
        object.__setattr__(self, "messages", ())
        for name, value in controls.items():
            setattr(self, name, value)

    @property
    def controls(self) -> Tuple[Control, ...]:
        """All controls in the order of the panel."""
        return tuple(Control(**{**c, "choices": tuple(c["choices"])}) for c in self._node.controls())

    def _control(self, name: str) -> Control:
        controls = {control.name: control for control in self.controls}
        if name in controls:
            return controls[name]
        near = difflib.get_close_matches(name, controls, 3, 0.5)
        hint = f"; the nearest are {', '.join(near)}" if near else ""
        raise AttributeError(f"The node has no control '{name}'{hint}.")

    def __getattr__(self, name: str) -> Union[bool, int, float]:
        if name.startswith("_"):
            raise AttributeError(name)
        return self._control(name).value

    def __setattr__(self, name: str, value: Any) -> None:
        self._control(name)
        self._node.set(name, _text(value))

    def __dir__(self):
        return [*super().__dir__(), *(control.name for control in self.controls)]

    def enabled(self, name: str) -> bool:
        """Whether the panel would let an artist change this control, with the values that are set."""
        return self._control(name).enabled

    @property
    def help(self) -> str:
        """The node's own help."""
        return self._node.help()

    def render(self, left, right, disparity, occlusions, mask=None):
        """The corrected view, an Image of 4 components.

        left, right: the views (4 components: linear red, green, blue, and alpha). disparity: of the view to correct, 4
        components: x and y to the left view, x and y to the right one, in pixels, y up. occlusions: an Image of one
        component, 1 where the other view doesn't show the pixel, or a sequence of them: of this frame, then of the
        frames -1, +1, -2, +2. All over one box. mask: the input Mask, 1 component (alpha), 3 or 4, of any box.
        Raises Error where the node refuses; `messages` then holds all that it said. Warns of pixels that are no numbers.
        """
        single = isinstance(occlusions, _viewtint.Image)
        picture, messages = self._node.render(left, right, disparity, [occlusions] if single else list(occlusions), mask)
        object.__setattr__(self, "messages", tuple(messages))
        if picture is None:
            raise Error(messages[0] if messages else "The node delivered no picture.")
        return picture


def render_file(input, output, mask=None, frames=None, skip_existing=False, disparity="", **controls):
    """Corrects one view of a multi-view OpenEXR file, or of each frame of a sequence, as `viewtint render` does.

    input, output: files, or names with a place for the frame number such as shot.####.exr. mask: a file, or for a
    sequence also a name with such a place. frames: a range such as "1001-1240x2"; all files without it. disparity:
    "estimate", "file" or another file that has the channels; without it the file's, estimated where it has none.
    Controls by their names. What a picture's maker should know of it is a UserWarning. Returns for each frame of a sequence a dict of frame, file, status ("written", "skipped" or "failed"), message
    and seconds, in the order of ending; nothing for one picture. Raises Error where a picture or the output fails,
    ValueError for a value out of range. What is written is whole.
    """
    given = [(name, _text(value)) for name, value in controls.items()]
    path = None if mask is None else str(mask)
    return _viewtint._render_file(str(input), str(output), given, path, frames, skip_existing, str(disparity))
