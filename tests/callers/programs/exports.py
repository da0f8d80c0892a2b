"""A script that calls the functions about certificates and signing by ctypes, where there is no screen, and writes what
each said, one fact a line: exports.py LIBRARY CERTIFICATE-FILE"""
import ctypes
import json
import sys
from ctypes import c_bool, c_char_p, c_int, c_uint16, c_uint64, c_void_p

from texts import text_at, wide

library = ctypes.CDLL(sys.argv[1])
CONTEXT = 0xFEDCBA9876543210
JSON = ctypes.CFUNCTYPE(None, c_uint64, c_void_p)
RECORD = ctypes.CFUNCTYPE(None, c_uint64, c_bool, *[c_void_p] * 6)
FLAGGED = ctypes.CFUNCTYPE(None, c_uint64, c_bool, *[c_void_p] * 6, c_bool)


def heard_json(context, address):
    answer = json.loads(text_at(address))
    first = answer[0] if isinstance(answer, list) else answer
    print(" ", type(answer).__name__, context == CONTEXT, first.get("CommonName"), first.get("ErrorMessage"))


def heard_record(context, error, message, name, since, until, thumbprint, issuer, *flag):
    texts = [text_at(address) for address in (message, name, issuer)]
    print(" ", "error" if error else "record", context == CONTEXT, *texts, *flag)


def call(name, types, *arguments, result=c_bool):
    function = getattr(library, name)
    function.argtypes, function.restype = types, result
    print(name)
    print(" ", function(*arguments))


listen, record, flagged = JSON(heard_json), RECORD(heard_record), FLAGGED(heard_record)
file = wide(sys.argv[2])
request = wide(json.dumps({"Filename": sys.argv[2], "ShowDialogIfOne": False}))
store = wide(json.dumps({"Store": "MY"}))
buffers = [(c_uint16 * 300)() for _ in range(4)]

call("NorvikInit", [c_void_p], None, result=None)
call("NorvikCertInfo", [c_char_p, RECORD, c_uint64], file, record, CONTEXT)
call("NorvikCertInfo2", [c_char_p, FLAGGED, c_uint64], file, flagged, CONTEXT)
call("NorvikCertInfoJson", [c_char_p, JSON, c_uint64], store, listen, CONTEXT)
call("NorvikCertStoreInfo", [c_char_p, RECORD, c_uint64], wide("Nobody"), record, CONTEXT, result=None)
call("NorvikSelectCertificateJson", [c_char_p, JSON, c_uint64], request, listen, CONTEXT)
call("NorvikSelectCertificateJson", [c_char_p, JSON, c_uint64], store, listen, CONTEXT)
call("NorvikSelectCertificateFromFileCB", [c_char_p, FLAGGED, c_int, c_uint64], file, flagged, 0, CONTEXT)
call("NorvikSelectCertificateCB", [c_char_p, FLAGGED, c_uint64], wide("MY"), flagged, CONTEXT)
flag = c_bool(True)
call("NorvikSelectCertificateFromFile", [c_char_p, *[c_void_p] * 4, c_void_p, c_int], file, *buffers,
     ctypes.byref(flag), 0, result=c_int)
print(" ", flag.value, *[text_at(ctypes.addressof(buffer)) for buffer in buffers[:2]])
call("NorvikSelectCertificate", [c_void_p] * 4, *buffers)
call("NorvikCertSelectPrivate", [], result=None)
call("NorvikSignFileJson", [c_char_p, JSON, c_uint64], wide(json.dumps({"SignFile": sys.argv[2]})), listen, CONTEXT)
call("NorvikSignFile", [c_char_p, c_int], file, 1)
call("NorvikSignFileResult", [c_char_p, c_int, c_void_p], file, 1, buffers[0])
call("NorvikSignFileFilter", [c_char_p, c_int, c_void_p, c_char_p], file, 1, None, wide("AA;BB"))
call("NorvikSignFileFilterTSA", [c_char_p, c_int, c_void_p, c_char_p, c_char_p], file, 1, None, None, wide(" "))
call("NorvikShowAboutBox", [], result=None)
call("EPNorvikSignFileA", [c_void_p, c_void_p, c_char_p, c_int], None, None, sys.argv[2].encode(), 0, result=None)
call("EPNorvikShowAboutBoxW", [c_void_p, c_void_p, c_char_p, c_int], None, None, None, 0, result=None)
sys.exit(3)
