"""The library's texts in UTF-16, to it and from it."""
import ctypes


def wide(text):
    return text.encode("utf-16-le") + b"\0\0"


def text_at(address):
    if not address:
        return None
    length = 0
    while ctypes.c_uint16.from_address(address + 2 * length).value != 0:
        length += 1
    return ctypes.string_at(address, 2 * length).decode("utf-16-le")
