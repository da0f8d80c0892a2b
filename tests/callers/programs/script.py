"""A script that calls the library by ctypes, as any language with a C interface does, and tells what came of it.
script.py LIBRARY call FUNCTION [REQUEST] | certificates FILE | verify ATTACHED DETACHED DATA"""
import ctypes
import glob
import json
import os
import sys
from ctypes import c_bool, c_int, c_uint16, c_uint64, c_void_p

library = ctypes.CDLL(sys.argv[1])
CONTEXT = 0xFEDCBA9876543210


def wide(text):
    return text.encode("utf-16-le") + b"\0\0"


def text_at(address):
    if not address:
        return None
    length = 0
    while c_uint16.from_address(address + 2 * length).value != 0:
        length += 1
    return ctypes.string_at(address, 2 * length).decode("utf-16-le")


def call(name, *arguments, result=c_bool):
    function = getattr(library, name)
    function.restype = result
    print(name, flush=True)
    print(" ", function(*(c_uint64(CONTEXT) if argument is CONTEXT else argument for argument in arguments)))


def listener(*types):
    return lambda hear: ctypes.CFUNCTYPE(None, c_uint64, *types)(
        lambda context, *rest: print(" ", context == CONTEXT, *hear(*rest)))


@listener(c_void_p)
def whole(answer):
    return [json.dumps(json.loads(text_at(answer)), ensure_ascii=False)]


@listener(c_void_p)
def some(answer):
    found = json.loads(text_at(answer))
    first = found[0] if isinstance(found, list) else found
    names = "CommonName", "ErrorMessage", "SignStatus", "CertStatus"
    return type(found).__name__, *[first.get(name) for name in names], first.get("Certificate", first).get("CommonName")


@listener(c_void_p)
def failure(answer):
    return [text_at(answer)[:5]]


def record(error, message, name, since, until, thumbprint, issuer, *flag):
    return "error" if error else "record", text_at(message), text_at(name), text_at(issuer), *flag


plain, flagged = listener(c_bool, *[c_void_p] * 6)(record), listener(c_bool, *[c_void_p] * 6, c_bool)(record)


@listener(c_int, c_void_p, c_int, c_void_p, c_int, *[c_void_p] * 6)
def info(error, message, reserved, time, failed, text, subject, *rest):
    return error, text_at(message), reserved, failed, text_at(text), text_at(subject), len(rest)


def certificates(path):
    file, store = wide(path), wide('{"Store": "MY"}')
    request = wide(json.dumps({"Filename": path, "ShowDialogIfOne": False}))
    buffers, flag = [(c_uint16 * 300)() for _ in range(4)], c_bool(True)
    call("NorvikInit", None, result=None)
    call("NorvikCertInfo", file, plain, CONTEXT)
    call("NorvikCertInfo2", file, flagged, CONTEXT)
    call("NorvikCertInfoJson", store, some, CONTEXT)
    call("NorvikCertStoreInfo", wide("Nobody"), plain, CONTEXT, result=None)
    call("NorvikSelectCertificateJson", request, some, CONTEXT)
    call("NorvikSelectCertificateJson", store, some, CONTEXT)
    call("NorvikSelectCertificateFromFileCB", file, flagged, 0, CONTEXT)
    call("NorvikSelectCertificateCB", wide("MY"), flagged, CONTEXT)
    call("NorvikSelectCertificateFromFile", file, *buffers, ctypes.byref(flag), 0, result=c_int)
    print(" ", flag.value, *[text_at(ctypes.addressof(buffer)) for buffer in buffers[:2]])
    call("NorvikSelectCertificate", *buffers)
    call("NorvikCertSelectPrivate", result=None)
    call("NorvikSignFileJson", wide(json.dumps({"SignFile": path})), some, CONTEXT)
    call("NorvikSignFile", file, 1)
    call("NorvikSignFileResult", file, 1, buffers[0])
    call("NorvikSignFileFilter", file, 1, None, wide("AA;BB"))
    call("NorvikSignFileFilterTSA", file, 1, None, None, wide(" "))
    call("NorvikShowAboutBox", result=None)
    call("EPNorvikSignFileA", None, None, path.encode(), 0, result=None)
    call("EPNorvikShowAboutBoxW", None, None, None, 0, result=None)


def verify(*paths):
    attached, detached, data = map(wide, paths)
    request = wide(json.dumps({"SignFile": paths[1], "DataFile": paths[2]}))
    call("NorvikSignInfoJson", request, some, CONTEXT)
    call("NorvikSignInfo", attached, info, CONTEXT, result=None)
    call("NorvikSignInfo2", detached, data, info, CONTEXT, result=None)
    for file in detached, attached, data:
        call("NorvikIsP7S", file, failure, CONTEXT)
    path, text = ctypes.create_string_buffer(8192), ctypes.create_string_buffer(8192)
    call("NorvikExtractFile", attached, path, text, 1, result=c_int)
    print(" ", open(text_at(ctypes.addressof(path)), encoding="utf-8").read())
    print(" ", text_at(ctypes.addressof(text)).splitlines()[3])
    call("NorvikP7M2P7S", attached, wide(paths[0] + ".p7s"))
    # Nobody is there to look at a window: the calls fail and the program goes on.
    call("NorvikDecryptVerifyFile", attached, 0, result=c_int)
    call("NorvikDecryptVerifyFileEx", None, None, attached, 0, result=None)
    call("EPNorvikDecryptVerifyFileW", None, None, attached, 0, result=None)
    call("EPNorvikDecryptVerifyFileA", None, None, paths[0].encode(), 0, result=None)
    call("EPNorvikDecryptVerifyFileEx", None, None, attached, 0, result=None)


if sys.argv[2] != "call":
    {"certificates": certificates, "verify": verify}[sys.argv[2]](*sys.argv[3:])
elif len(sys.argv) > 4:
    call(sys.argv[3], wide(sys.argv[4]), whole, CONTEXT)
else:
    call(sys.argv[3], result=None)
# What a signing in another process has left behind; it goes with this process.
for file in glob.glob(os.environ["TMPDIR"] + "/Norvik/*/out.txt"):
    with open(file, encoding="utf-8") as relay:
        print("relay %o" % (os.stat(file).st_mode & 0o777), json.dumps(relay.read(), ensure_ascii=False))
sys.exit(3)
