"""The colour matching node with its controls, on pictures in memory."""

import difflib
import warnings
from dataclasses import dataclass
from typing import Any, Optional, Sequence, Tuple, Union

from . import _viewtint
from .errors import Error, PictureWarning


def _text(value: Any) -> str:
    return ("on" if value else "off") if isinstance(value, bool) else str(value)


def _warn(sentences: Sequence[str]) -> None:
    for sentence in sentences:
        warnings.warn(sentence, PictureWarning, stacklevel=3)


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
    acts_above_maximum: bool  #: whether the maximum is only the end of a slider
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
    matched: bool  #: False where the last render left the view as it was, with a warning that says why

    def __init__(self, **controls: Any):
        object.__setattr__(self, "_node", _viewtint._Node())
        object.__setattr__(self, "messages", ())
        object.__setattr__(self, "matched", True)
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
        Raises Error where the node refuses; `messages` then holds all that it said. Where less than one per cent of the
        view, or nothing that the mask fully selects, is visible in both views it comes back as it is, with a warning;
        `matched` is then False. Warns of pixels that are no numbers, too.
        """
        single = isinstance(occlusions, _viewtint.Image)
        frames = [occlusions] if single else list(occlusions)
        picture, messages, told, matched = self._node.render(left, right, disparity, frames, mask)
        object.__setattr__(self, "messages", tuple(messages))
        object.__setattr__(self, "matched", matched)
        _warn(told)
        if picture is None:
            raise Error(messages[0] if messages else "The node delivered no picture.")
        return picture


def render_file(input, output, mask=None, frames=None, skip_existing=False, disparity="", **controls):
    """Corrects one view of a multi-view OpenEXR file, or of each frame of a sequence, as `viewtint render` does.

    input, output: files, or names with a place for the frame number such as shot.####.exr. mask: a file, or for a
    sequence also a name with such a place. frames: a range such as "1001-1240x2"; all files without it. disparity:
    "estimate", "file" or another file that has the channels; without it the file's, estimated where it has none.
    Controls by their names. Returns for each frame of a sequence a dict of frame, file, status ("written", "unmatched",
    "skipped" or "failed"), message and seconds, in the order of ending; nothing for one picture. A frame of which too
    little is visible in both views is written as it came in, with a PictureWarning, and is "unmatched". Raises Error
    where a picture or the output fails, ValueError for a value out of range. What is written is whole.
    """
    given = [(name, _text(value)) for name, value in controls.items()]
    path = None if mask is None else str(mask)
    results, told = _viewtint._render_file(str(input), str(output), given, path, frames, skip_existing, str(disparity))
    _warn(told)
    return results
