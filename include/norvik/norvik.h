/*
 * Norvik: electronic signatures and document protection.
 *
 * The one header of libNorvik.so, for C and C++. Rules for all functions stand here; a function tells only what
 * differs.
 *
 * - Text: UTF-16, zero-terminated. Functions that end in A take narrow text in the charset of the process's
 *   locale; text that the charset cannot represent counts as no text.
 * - Ownership: nothing that the library hands out is to be freed. A text given to a callback lives until the callback
 *   returns; who keeps it copies it. Output buffers belong to the caller.
 * - Callbacks: are called on the caller's thread, before the function returns, with the context as it was given. They
 *   must not throw. A null callback makes the function return false (or at once) with nothing done.
 * - Errors: no exception leaves a function. A JSON answer that tells a failure has the members "Error" (always
 *   true when present) and "ErrorMessage"; success is the absence of "Error". Messages for people are in Bulgarian.
 * - Threads: the calling thread is taken to be a user-interface thread, and windows are modal on it. Calls from several
 *   threads at once are allowed where no window is shown.
 * - Windows: need a display. Where there is none the function fails through its usual channel and the process lives on.
 */
#ifndef NORVIK_NORVIK_H
#define NORVIK_NORVIK_H

#include <stdint.h>  // NOLINT(modernize-deprecated-headers): for C too
#include <uchar.h>   // NOLINT(modernize-deprecated-headers)
#ifdef __cplusplus
#define NORVIK_EXTERN extern "C"
#else
#include <stdbool.h>
#define NORVIK_EXTERN extern
#endif

#define NORVIK_EXPORT NORVIK_EXTERN __attribute__((visibility("default")))

/* ---- Callbacks ------------------------------------------------------------------------------------------------ */

/* A JSON answer: one object (one array where the function says so). */
typedef void (*NorvikJsonCallback)(uint64_t context, const char16_t* json);

/* One certificate, or one message when error is true: then the texts after the message are null. Dates are in the
 * user's short form, the thumbprint is the SHA-1 hash in upper-case hexadecimal. */
typedef void (*NorvikRecordCallback)(uint64_t context, bool error, const char16_t* message, const char16_t* commonName,
                                     const char16_t* notBefore, const char16_t* notAfter, const char16_t* thumbprint,
                                     const char16_t* issuer);

/* The same and a final flag, whose meaning each function tells. */
typedef void (*NorvikRecordFlagCallback)(uint64_t context, bool error, const char16_t* message,
                                         const char16_t* commonName, const char16_t* notBefore,
                                         const char16_t* notAfter, const char16_t* thumbprint, const char16_t* issuer,
                                         bool flag);

/* One signature of a file. error 1: only message is set. failed: 0 if the signature and its certificate are good, else
 * 1; text says why. signingTime is local time, "YYYY-MM-DD hh:mm:ss", empty if the signature tells none. The reserved
 * number is 0. */
typedef void (*NorvikSignInfoCallback)(uint64_t context, int error, const char16_t* message, int reserved,
                                       const char16_t* signingTime, int failed, const char16_t* text,
                                       const char16_t* subject, const char16_t* validFrom, const char16_t* validTo,
                                       const char16_t* thumbprint, const char16_t* issuer);

/* ---- Set-up --------------------------------------------------------------------------------------------------- */

/* Sets the window that owns the library's dialogs (on X11: the window's id as a pointer; null: none), for the whole
 * process and until the next call. Not needed before other functions. */
NORVIK_EXPORT void NorvikInit(void* window);

/* ---- Signing -------------------------------------------------------------------------------------------------- */

/* Signs one file, with the choice of certificate and timestamp authority left to the user's dialog. The request is a
 * JSON object: "SignFile" (required), "ResultFolder" (default: the file's), "SignMode" (0 detached .p7s, 1 attached
 * .p7m, other: the user decides), the filters "ThumbprintInclude", "ThumbprintExclude", "AuthIdInclude",
 * "AuthIdExclude" (arrays of upper-case hexadecimal texts), "TSA" (array of authorities), "StoreFilename" and
 * "StorePassword" (a PFX file), "StoreWindows" (a further store). The answer has "SignFile", "ResultFile" and
 * "SignMode". Cancelling gives no answer. True when the signing ran to its end in this process; false otherwise, also
 * when a launcher beside the library did it: the outcome is in the answer. A null or blank request gives false and no
 * answer. */
NORVIK_EXPORT bool NorvikSignFileJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context);

/* The same for plain arguments, in order: the path of the file; the sign mode as above; a buffer for the path of the
 * result, large enough for the longest path, or null; thumbprints to offer, separated by ';', or null for all; the
 * timestamp authorities as JSON text, or null for those of the settings. True if the file was signed. */
NORVIK_EXPORT bool NorvikSignFile(const char16_t* file, int signMode);
NORVIK_EXPORT bool NorvikSignFileResult(const char16_t* file, int signMode, char16_t* result);
NORVIK_EXPORT bool NorvikSignFileFilter(const char16_t* file, int signMode, char16_t* result,
                                        const char16_t* thumbprints);
NORVIK_EXPORT bool NorvikSignFileFilterTSA(const char16_t* file, int signMode, char16_t* result,
                                           const char16_t* thumbprints, const char16_t* tsa);

/* Signs a list of files, separated by ';', with one choice of certificate. 1 if the last file was signed or the dialog
 * was cancelled (or an error was shown), else 0; 0 for a null or empty list. */
NORVIK_EXPORT int NorvikSFiles(const char16_t* files);

/* Signs a file and encrypts the result for recipients whom the user picks. The outcome is told in windows only. */
NORVIK_EXPORT int NorvikSignAndEncryptFile(const char16_t* file);

/* The launcher's entry: reads a signing request from the named file, runs it and writes the answer into the same file.
 * The instance handle and the show flag are ignored, here and in all functions of this shape. */
NORVIK_EXPORT void NorvikSignRunDllW(void* window, void* instance, const char16_t* requestFile, int show);
NORVIK_EXPORT void NorvikSignRunDllA(void* window, void* instance, const char* requestFile, int show);

/* ---- Verification and extraction ------------------------------------------------------------------------------ */

/* Verifies a signed file (.p7m, or .p7s with its data beside it) and shows every signer's verdict in a window. A flag
 * other than 0: the user is not asked for a missing data file. Always 1: what came of it was shown. */
NORVIK_EXPORT int NorvikDecryptVerifyFile(const char16_t* file, int flag);
/* The same as an entry for launchers; sets the owner window too. */
NORVIK_EXPORT void NorvikDecryptVerifyFileEx(void* window, void* instance, const char16_t* file, int show);

/* Takes the content out of an attached signature into the session's folder. outputPath receives the path (no length
 * check: room for the longest path); text receives, unless null, six lines for each signature (number, name, date,
 * state, comment, thumbprint; no length check). 1 if content was extracted, else 0; 1 also after an error that was
 * shown in a box. */
NORVIK_EXPORT int NorvikExtractFile(const char16_t* file, char16_t* outputPath, char16_t* text, int flag);

/* Whether the file is a detached signature. The callback, which may be null, is called only with the text of an error
 * (no JSON); the result is then false. */
NORVIK_EXPORT bool NorvikIsP7S(const char16_t* file, NorvikJsonCallback onError, uint64_t context);

/* Writes the first signer of an attached signature as a detached one, without the certificates of the file, and never
 * over the file itself. True whatever came of it; false if an error was logged. */
NORVIK_EXPORT bool NorvikP7M2P7S(const char16_t* source, const char16_t* target);

/* Calls back once for each signature of a file; the second form names the data of a detached signature (null: beside
 * it). */
NORVIK_EXPORT void NorvikSignInfo(const char16_t* file, NorvikSignInfoCallback callback, uint64_t context);
NORVIK_EXPORT void NorvikSignInfo2(const char16_t* file, const char16_t* dataFile, NorvikSignInfoCallback callback,
                                   uint64_t context);
/* The same as one JSON array. The request is an object with "SignFile" and, for detached signatures, "DataFile". */
NORVIK_EXPORT bool NorvikSignInfoJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context);

/* ---- Encryption ----------------------------------------------------------------------------------------------- */

/* Encrypts a file for recipients whom the user picks. The outcome is told in windows only. */
NORVIK_EXPORT int NorvikEncryptFile(const char16_t* file);

/* ---- Certificates --------------------------------------------------------------------------------------------- */

/* Reports the certificates of a file. In the second form the flag says whether the certificate is valid now. A null or
 * blank path calls back once with an error. */
NORVIK_EXPORT bool NorvikCertInfo(const char16_t* file, NorvikRecordCallback callback, uint64_t context);
NORVIK_EXPORT bool NorvikCertInfo2(const char16_t* file, NorvikRecordFlagCallback callback, uint64_t context);
/* Reports certificates as one JSON array. The request is an object with "Filename" (certificate or PFX, with
 * "Password") and/or "Store", and the four filters of NorvikSignFileJson. */
NORVIK_EXPORT bool NorvikCertInfoJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context);
/* Lists the keys of a provider: the name of a PKCS#11 module or token; empty: the software keys. Every line is reported
 * as a message with error true: the flag does not tell failure here. */
NORVIK_EXPORT void NorvikCertStoreInfo(const char16_t* provider, NorvikRecordCallback callback, uint64_t context);
/* Lets the user pick a certificate and makes a test signature with its private key; shows a box if that fails. */
NORVIK_EXPORT void NorvikCertSelectPrivate(void);

/* Lets the user pick a certificate of the store "MY". Each buffer has room for 300 characters with the
 * terminator; a text that does not fit leaves its buffer an empty text, never a cut one. False if a pointer is null or
 * nothing was picked; then the buffers stay as they are. */
NORVIK_EXPORT bool NorvikSelectCertificate(char16_t* commonName, char16_t* thumbprint, char16_t* notBefore,
                                           char16_t* notAfter);
/* The same for a named store, by callback. Dates are those of the record of NorvikSelectCertificateJson, local time
 * with its distance from UTC; the flag, here and below, is false for every certificate that is valid: NorvikCertInfo2
 * tells validity. Nothing picked calls nobody. False on success, true on failure: the reverse of the other functions.
 */
NORVIK_EXPORT bool NorvikSelectCertificateCB(const char16_t* store, NorvikRecordFlagCallback callback,
                                             uint64_t context);
/* The same for a file. showDialogIfOne 0: a single certificate is taken without asking. -1 if a pointer is null or the
 * path is blank, else 1 if a certificate was picked (or an error was shown), 0 if not. */
NORVIK_EXPORT int NorvikSelectCertificateFromFile(const char16_t* file, char16_t* commonName, char16_t* thumbprint,
                                                  char16_t* notBefore, char16_t* notAfter, bool* flag,
                                                  int showDialogIfOne);
NORVIK_EXPORT bool NorvikSelectCertificateFromFileCB(const char16_t* file, NorvikRecordFlagCallback callback,
                                                     int showDialogIfOne, uint64_t context);
/* The same for a JSON request as of NorvikCertInfoJson with "ShowDialogIfOne"; the answer is the certificate's record.
 */
NORVIK_EXPORT bool NorvikSelectCertificateJson(const char16_t* request, NorvikJsonCallback callback, uint64_t context);

/* ---- Dialogs -------------------------------------------------------------------------------------------------- */

NORVIK_EXPORT void NorvikShowAboutBox(void);
NORVIK_EXPORT int NorvikShowSettingsDialog(void);

/* ---- Entries for launchers ------------------------------------------------------------------------------------ */

/* Each sets the owner window and runs the function it is named for with the text (ignored by the last two pairs); what
 * came of it stays in the operation's own windows. EPNorvikSignFile leaves the form of the signature to the user. */
NORVIK_EXPORT void EPNorvikSignFileW(void* window, void* instance, const char16_t* file, int show);
NORVIK_EXPORT void EPNorvikSignFileA(void* window, void* instance, const char* file, int show);
NORVIK_EXPORT void EPNorvikSignFilesW(void* window, void* instance, const char16_t* files, int show);
NORVIK_EXPORT void EPNorvikSignFilesA(void* window, void* instance, const char* files, int show);
NORVIK_EXPORT void EPNorvikEncryptFileW(void* window, void* instance, const char16_t* file, int show);
NORVIK_EXPORT void EPNorvikEncryptFileA(void* window, void* instance, const char* file, int show);
NORVIK_EXPORT void EPNorvikSignAndEncryptFileW(void* window, void* instance, const char16_t* file, int show);
NORVIK_EXPORT void EPNorvikSignAndEncryptFileA(void* window, void* instance, const char* file, int show);
NORVIK_EXPORT void EPNorvikDecryptVerifyFileW(void* window, void* instance, const char16_t* file, int show);
NORVIK_EXPORT void EPNorvikDecryptVerifyFileA(void* window, void* instance, const char* file, int show);
NORVIK_EXPORT void EPNorvikDecryptVerifyFileEx(void* window, void* instance, const char16_t* file, int show);
NORVIK_EXPORT void EPNorvikShowSettingsDialogW(void* window, void* instance, const char16_t* text, int show);
NORVIK_EXPORT void EPNorvikShowSettingsDialogA(void* window, void* instance, const char* text, int show);
NORVIK_EXPORT void EPNorvikShowAboutBoxW(void* window, void* instance, const char16_t* text, int show);
NORVIK_EXPORT void EPNorvikShowAboutBoxA(void* window, void* instance, const char* text, int show);

#endif
