"""The image operations of ViewTint on NumPy arrays.

An `Image` is a raster of float32 on a box of the plane: x to the right, y upward, boxes half-open, row 0 of an array
the lowest. Operations have their C++ names and return new images; `run` starts any kernel of `kernels()`.
"""

from viewtint import _viewtint
from viewtint._viewtint import *
from viewtint._viewtint import version as __version__
from viewtint.errors import Error as Error
from viewtint.errors import PictureWarning as PictureWarning
from viewtint.errors import UnknownNameError as UnknownNameError
from viewtint.errors import WrongTypeError as WrongTypeError
from viewtint.records import ImageRecord as ImageRecord
from viewtint.records import KernelRecord as KernelRecord
from viewtint.records import ScalarRecord as ScalarRecord

if hasattr(_viewtint, "_Node"):  # not in a wheel, which comes without the host
    from viewtint.node import Control as Control
    from viewtint.node import Node as Node
    from viewtint.node import render_file as render_file
