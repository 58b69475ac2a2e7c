/* The interface of a module: ten functions with plain linkage and plain types.
 *
 * A host loads the library, resolves all ten, and calls them in this order: GetAlias,
 * GetVersionDesc and GetPorts at any time; DoAction 0 or 4 once before the first command; then
 * DistributeCommand, GetWaitTimeout, GetImage, SetImage, Reserved and CloseWebSocket as often as it
 * likes and from any of its threads at once; DoAction 2 when the service stops; DoAction 3 last,
 * after every other call has returned, before it unloads the library.
 *
 * Strings are NUL-terminated UTF-8. The module copies every text and payload that it is given
 * before the call returns, and keeps no pointer to them; what it hands to a callback belongs to the
 * module and is valid only for that call. A pointer that must not be null and is leads to the
 * function's failure result, nothing else. No call throws, and what a callback throws ends there.
 *
 * A callback may call the module again, but not DoAction 3, and the library must not be unloaded
 * under it. A thread that runs commands needs about 1 MiB of stack.
 */
#ifndef QTP_MODULE_H
#define QTP_MODULE_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QTP_EXPORT __attribute__((visibility("default")))

/* The module answers a command by this callback, on the thread that runs the command: a text for
 * the client, and optionally binary data and a further text beside it (null when there are none).
 * The first two arguments are those of DistributeCommand. Nonzero means delivered. */
typedef signed char (*SendBackFunc)(int connectionId, void* host, const char* text,
                                    const void* data, unsigned int len, const char* extra);

/* The module asks the host for a service by these, on the thread that runs the command: the third
 * text names it, the first two are null. Of the three callbacks that DistributeCommand takes the
 * first and the third serve all of these names, the second those without an answer:
 *
 *   restartService                      listen anew once the reply is out; out and len are null
 *   stopmDNSQuery, startmDNSQuery       browsing for other services; out and len are null
 *   stopmDNS, startmDNS                 announcing this service; out and len are null
 *   getBinaryFileInfo, getServiceInfo, getUploadFile   a text, asked for twice: with a null out the
 * host stores its size through len; then *len is the room in out, and the host stores how much of
 * it it filled. No terminator. Both calls are about one text, if the same thread makes one after
 * the other. The last is the path of a file that holds the data of the command that runs on this
 * thread, until it ends; an empty text where there is none.
 *
 * No name takes data yet. The result is 0 for done and negative for refused, as any other name is;
 * the module goes on either way. */
typedef int (*HostDataGetFunc)(const char*, const char*, const char* name, void* out,
                               unsigned int* len);
typedef int (*HostDataSetFunc)(const char*, const char*, const char* name, const void* data,
                               unsigned int len);

/* The lifecycle. Action 0 starts the module as part of the service, 4 in the process mode of a
 * helper process. Both, the first time only, take the folder of the running executable for their
 * work folder, read the settings there and make log/, cache/ and upload/ in it; then, each time,
 * they take the module's own path, the host's executable (each may be null and is then left as it
 * was) and the number that keeps the module's private names apart from those of other services.
 * Action 2 says that the service is stopping. Action 3 destroys the module's state; a later call
 * would make it anew. Any other action does nothing. Returns true when something was done. */
QTP_EXPORT bool DoAction(unsigned int action, const char* exeFile, const char* modulePath,
                         unsigned int seed);

/* Runs a command and answers through sendBack before it returns. Commands run in parallel, each on
 * its caller's thread. What is a command is told by the path:
 *
 *   /qtp/...                        the text; what follows its first empty line (CR LF CR LF) is
 * its payload
 *   ...LoadZipFromBytes?type=T&qvver=V&   the body is the payload, the text is not looked at
 *   ...CheckUpdateFile?qvver=V&     the text, with V put in at its end (the last '&' is needed)
 *
 * Any other is answered "Invalid command". A reply may be an empty text. A command that fails for
 * want of memory is not answered.
 *
 *   connectionId  the host's id of the connection, handed to sendBack; with 0 a command runs
 *                 unanswered
 *   host          opaque, handed to sendBack
 *   kind          0: text1 is the path with its query, text2 the text of the request
 *                 1: text1 is the text of a message, text2 is ignored
 *                 any other: nothing happens, no reply, result 0
 *   data, dataLen binary body of the request, null for none; at most INT_MAX bytes
 *   browserType   the kind of client; an unknown one, 0, gets error -2205 and its command is not
 *                 run; all others are alike
 *   socket        descriptor of the connection
 *   domain        origin of the page, "" for a client that is none
 *   get1,set,get2 host callbacks for the requests named above; each may be null
 *
 * text1, text2 and domain must not be null (text2 may be for kind 1). Without sendBack a command
 * runs unanswered. Returns what sendBack returned, 0 when nothing was sent. */
QTP_EXPORT int DistributeCommand(int connectionId, void* host, int kind, const char* text1,
                                 const char* text2, const void* data, unsigned int dataLen,
                                 int browserType, SendBackFunc sendBack, int socket,
                                 const char* domain, HostDataGetFunc get1, HostDataSetFunc set,
                                 HostDataGetFunc get2);

/* Announces a closed connection. Does nothing. */
QTP_EXPORT void CloseWebSocket(int connectionId);

/* 1 from DoAction 3 or the load until the first command, while one runs, and up to 30 seconds after
 * one ended or answered; else 100. With commands side by side the one that ended last counts: 100
 * does not say that nothing runs. */
QTP_EXPORT int GetWaitTimeout(void);

/* Stores the alias, four bytes "qtp" and zero in little-endian order, unless alias is null. Returns
 * the size, 4. */
QTP_EXPORT int GetAlias(unsigned int* alias);

/* Copies the version description with its terminator unless out is null. Returns the size that it
 * needs, so a caller asks with null first. */
QTP_EXPORT int GetVersionDesc(char* out);

/* Stores the default port, the secure one when ssl is nonzero, unless port is null. Returns 1.
 * (The flag is a byte that is tested against 0: the same call as with a bool, without undefined
 * values.) */
QTP_EXPORT int GetPorts(unsigned char ssl, unsigned int* port);

/* Encrypted image maps: opaque records of 2,052 bytes, kept by a GUID. The url holds
 * "/GetEncryptedImageMap?" or "/SetEncryptedImageMap?", and everything behind its first "GUID=" is
 * the GUID. GetImage stores the size through len, which must not be null, and copies the record
 * into out unless that is null; returns 1, or 0 when there is none. SetImage keeps the first 2,052
 * of len bytes, filled up with zeros, or forgets the record when data is null; returns 1, or 0 for
 * an url without a GUID.
 */
QTP_EXPORT int GetImage(const char* url, void* out, unsigned int* len);
QTP_EXPORT int SetImage(const char* url, const void* data, unsigned int len);

/* The file whitelist, by the first 18 characters of name: "fileInHVNWhiteList" returns 0 when the
 * path is listed and -1 when not, "addFileToWhiteList" lists it and returns 0. Anything else, a
 * null name or path, or a third argument that is not null gives -1. */
QTP_EXPORT int Reserved(const char* name, const char* path, const void* mustBeNull);

#ifdef __cplusplus
}
#endif

#endif
