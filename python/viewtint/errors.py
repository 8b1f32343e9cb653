"""What operations and kernel calls raise, and of what they warn."""


class Error(ValueError):
    """A call that a kernel refuses: no variant for these images, pixels that an image doesn't have. The message says
    what there is instead."""


class UnknownNameError(Error, KeyError):
    """There is no kernel, or no scalar of the kernel, of that name."""

    __str__ = ValueError.__str__  # KeyError would quote the whole message


class WrongTypeError(Error, TypeError):
    """A scalar's value is of another type or length than the kernel declares."""


class PictureWarning(UserWarning):
    """What the maker of a picture should know of a render that went well: the message names the picture."""
