"""How `viewtint.kernels()` describes kernels."""

from typing import NamedTuple


class ImageRecord(NamedTuple):
    """One image of a kernel."""

    name: str
    written: bool
    pattern: str
    """Where pixels are read: "point", along one "axis", in a "rectangle", or at "random"."""
    edge: str
    """What a read outside the image gives: "clamped" the nearest pixel, "constant" the scalar `constEdgeColor` followed
    by the image's name; with "none" such a call is refused."""


class ScalarRecord(NamedTuple):
    """A scalar that `run` takes by name."""

    name: str
    type: str
    """ "float", "int", "bool", or a vector: "float[4]"."""
    default: float | int | bool | list[float] | list[int]


class AccumulatorRecord(NamedTuple):
    """A result that `run` returns by name."""

    name: str
    type: str
    """ "float" or "float[4]"."""


class KernelRecord(NamedTuple):
    """One kernel of the catalogue."""

    images: list[ImageRecord]
    """In the order in which `run` takes them."""
    per_component: bool
    """It treats every component alike, by itself, so that the range of a call may leave components out."""
    passes: int
    """2 where it computes accumulators, else 1."""
    scalars: list[ScalarRecord]
    accumulators: list[AccumulatorRecord]
    tuples: list[str]
    """The component counts of the images that it takes: "3f_1f" is an image of 3 components and one of 1."""
