/* A module that behaves as its file is called, for tests of the host: "librefuses..." does not
 * start, any other does. What happens to it is written to "trace" beside it, a line an event.
 *
 * A command's text is the name of a host request: the reply tells what each of the three callbacks
 * answers, as "get <result> <text>, set <result>, get <result> <text>". */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "marvique/module.h"

/* This file's full path without its name, or its name without "lib" and what follows the first dot.
 */
static void Describe(int wantFolder, char* out, size_t size) {
  Dl_info info;
  out[0] = '\0';
  if (dladdr((void*)&Describe, &info) == 0) return;
  const char* slash = strrchr(info.dli_fname, '/');
  const char* name = slash != NULL ? slash + 1 : info.dli_fname;
  if (wantFolder) {
    snprintf(out, size, "%.*s", (int)(name - info.dli_fname), info.dli_fname);
  } else {
    name += strncmp(name, "lib", 3) == 0 ? 3 : 0;
    snprintf(out, size, "%.*s", (int)strcspn(name, "."), name);
  }
}

static void Trace(const char* event) {
  char name[64], path[1024];
  Describe(0, name, sizeof name);
  Describe(1, path, sizeof path - sizeof "trace");
  strcat(path, "trace");
  FILE* trace = fopen(path, "a");
  if (trace == NULL) return;
  fprintf(trace, "%s %s\n", name, event);
  fclose(trace);
}

__attribute__((destructor)) static void Unloaded(void) { Trace("unloaded"); }

bool DoAction(unsigned int action, const char* exeFile, const char* modulePath, unsigned int seed) {
  (void)exeFile, (void)modulePath, (void)seed;
  char name[64], event[32];
  snprintf(event, sizeof event, "action %u", action);
  Trace(event);
  Describe(0, name, sizeof name);
  return action != 0 || strncmp(name, "refuses", 7) != 0;
}

static int AskForText(HostDataGetFunc get, const char* name, char* text, unsigned int room) {
  unsigned int length = 0;
  text[0] = '\0';
  const int announced = get(NULL, NULL, name, NULL, &length);
  if (announced != 0 || length == 0 || length >= room) return announced;
  const int filled = get(NULL, NULL, name, text, &length);
  text[length] = '\0';
  return filled;
}

int DistributeCommand(int connectionId, void* host, int kind, const char* text1, const char* text2,
                      const void* data, unsigned int dataLen, int browserType,
                      SendBackFunc sendBack, int socket, const char* domain, HostDataGetFunc get1,
                      HostDataSetFunc set, HostDataGetFunc get2) {
  (void)data, (void)dataLen, (void)browserType, (void)socket, (void)domain;
  const char* name = kind == 0 ? text2 : text1;
  if (get1 == NULL || set == NULL || get2 == NULL) {
    return sendBack(connectionId, host, "a callback is missing", NULL, 0, NULL);
  }
  static char first[8192], third[8192], reply[2 * 8192 + 128];
  const int result1 = AskForText(get1, name, first, sizeof first);
  const int result2 = set(NULL, NULL, name, NULL, 0);
  const int result3 = AskForText(get2, name, third, sizeof third);
  snprintf(reply, sizeof reply, "get %d %s, set %d, get %d %s", result1, first, result2, result3,
           third);
  return sendBack(connectionId, host, reply, NULL, 0, NULL);
}

void CloseWebSocket(int connectionId) { (void)connectionId; }

int GetWaitTimeout(void) { return 100; }

int GetAlias(unsigned int* alias) {
  char name[64];
  Describe(0, name, sizeof name);
  if (alias != NULL) memcpy(alias, name, 3), ((char*)alias)[3] = '\0';
  return 4;
}

int GetVersionDesc(char* out) {
  if (out != NULL) strcpy(out, "test");
  return sizeof "test";
}

int GetPorts(unsigned char ssl, unsigned int* port) {
  (void)ssl;
  if (port != NULL) *port = 0; /* any free one */
  return 1;
}

int GetImage(const char* url, void* out, unsigned int* len) {
  (void)url, (void)out, (void)len;
  return 0;
}

int SetImage(const char* url, const void* data, unsigned int len) {
  (void)url, (void)data, (void)len;
  return 0;
}

int Reserved(const char* name, const char* path, const void* mustBeNull) {
  (void)name, (void)path, (void)mustBeNull;
  return -1;
}
