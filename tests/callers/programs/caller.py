"""A script that calls the library by ctypes: caller.py LIBRARY PFX"""
import ctypes
import json
import sys

library = ctypes.CDLL(sys.argv[1])
ANSWER = ctypes.CFUNCTYPE(None, ctypes.c_uint64, ctypes.c_void_p)


def text_at(address):
    length = 0
    while ctypes.c_uint16.from_address(address + 2 * length).value != 0:
        length += 1
    return ctypes.string_at(address, 2 * length).decode("utf-16-le")


def answer(context, address):
    records = json.loads(text_at(address))
    print("context", hex(context), "records", len(records), "error", "Error" in records[0])


call = library.NorvikCertInfoJson
call.argtypes = [ctypes.c_char_p, ANSWER, ctypes.c_uint64]
call.restype = ctypes.c_bool
request = json.dumps({"Filename": sys.argv[2]}).encode("utf-16-le") + b"\0\0"
print("done", call(request, ANSWER(answer), 0xFEDCBA9876543210))
sys.exit(3)
