"""An application in a language with a C interface: calls the functions on signed files and prints what they answer.
verify.py LIBRARY ATTACHED DETACHED DATA"""
import ctypes
import json
import sys

from texts import text_at, wide

library = ctypes.CDLL(sys.argv[1])
attached, detached, data = sys.argv[2:]
CONTEXT = 0xFEDCBA9876543210
JSON = ctypes.CFUNCTYPE(None, ctypes.c_uint64, ctypes.c_void_p)
INFO = ctypes.CFUNCTYPE(None, ctypes.c_uint64, ctypes.c_int, ctypes.c_void_p, ctypes.c_int, ctypes.c_void_p, ctypes.c_int,
                        *[ctypes.c_void_p] * 6)


def context(number):
    return ctypes.c_uint64(number)


@JSON
def hear_json(given, text):
    for one in json.loads(text_at(text)):
        print('json', given == CONTEXT, one.get('SignStatus'), one.get('CertStatus'), one['Certificate']['CommonName'])


@JSON
def hear_error(given, text):
    print('error', given == CONTEXT, text_at(text))


@INFO
def hear_info(given, error, message, reserved, time, failed, text, subject, *rest):
    print('info', given == CONTEXT, error, text_at(message), reserved, failed, text_at(text), text_at(subject), len(rest))


for name in ('NorvikSignInfoJson', 'NorvikIsP7S', 'NorvikP7M2P7S'):
    getattr(library, name).restype = ctypes.c_bool

request = json.dumps({'SignFile': detached, 'DataFile': data})
print('done', library.NorvikSignInfoJson(wide(request), hear_json, context(CONTEXT)))
library.NorvikSignInfo(wide(attached), hear_info, context(CONTEXT))
library.NorvikSignInfo2(wide(detached), wide(data), hear_info, context(CONTEXT))
print('detached', library.NorvikIsP7S(wide(detached), hear_error, context(CONTEXT)),
      library.NorvikIsP7S(wide(attached), hear_error, context(CONTEXT)),
      library.NorvikIsP7S(wide(data), hear_error, context(CONTEXT)))
path, text = ctypes.create_string_buffer(8192), ctypes.create_string_buffer(8192)
print('extracted', library.NorvikExtractFile(wide(attached), path, text, 1))
print('content', open(text_at(ctypes.addressof(path)), encoding='utf-8').read())
print(text_at(ctypes.addressof(text)).splitlines()[3])
print('converted', library.NorvikP7M2P7S(wide(attached), wide(attached + '.p7s')))
# Nobody is there to look at a window: the calls fail and the program goes on.
print('shown', library.NorvikDecryptVerifyFile(wide(attached), 0))
library.NorvikDecryptVerifyFileEx(None, None, wide(attached), 0)
library.EPNorvikDecryptVerifyFileW(None, None, wide(attached), 0)
library.EPNorvikDecryptVerifyFileA(None, None, attached.encode(), 0)
library.EPNorvikDecryptVerifyFileEx(None, None, wide(attached), 0)
print('alive')
