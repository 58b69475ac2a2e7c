// What may differ between operating systems, and nothing else. Each system has one body of this
// page (system_linux.cpp, system_macos.cpp), which the build picks, beside what they have in common
// (system_posix.cpp). A port to a further system fulfils every line.
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

struct sockaddr;
struct stat;

namespace os {

/// Full path of the running executable, "" when the system does not tell. It is that of its start,
/// also when another file is in its place by now.
std::string ExecutablePath();
/// The same of another process, by its number.
std::string ProgramOf(int process);
/// Whether the file that this process runs is not in its place any more.
bool IsExecutableReplaced();
/// A number that no other live thread of this process has, the same for the thread's whole life.
/// Cheap enough to be asked on every lock.
std::uint32_t ThreadNumber();
/// Milliseconds of a clock that never goes back, wrapping in 32 bits.
std::uint32_t TickCount();
/// The process's physical footprint in bytes, 0 when unknown.
std::uint64_t PhysicalFootprint();
/// From now on large blocks of memory that are freed go back to the system at once. While the
/// process has one thread.
void KeepLittleMemory();
/// Gives what else this process has freed back to the system, which takes up to some milliseconds.
void GiveMemoryBack();
/// Name and home folder of the user this process runs as, "" when unknown. The folder is $HOME if
/// that is a full path, else the user record's, without a trailing "/" (but "/" itself).
std::string UserName();
std::string HomeFolder();
/// The current environment, for starting programs.
char** Environment();
/// Makes a program that is started with these actions begin in a folder. Returns 0 or an errno.
int AddStartFolder(posix_spawn_file_actions_t* actions, const char* folder);
/// Fills up to 256 bytes with random ones fit for secrets. Returns false if the system gives none.
bool FillRandom(void* target, std::size_t size);
/// Makes a file's written bytes reach the disk. Returns 0 or an errno.
int FlushToDisk(int descriptor);
/// The same of all that there is of a file or a folder: its mode, the names in it.
int FlushWhollyToDisk(int descriptor);
/// A path by which this process can open once more, from its beginning, what is open for reading as
/// a descriptor, also a file that has no name any more.
std::string PathOfDescriptor(int descriptor);
/// How many characters the name of a semaphore has at most.
std::size_t LongestSemaphoreName();
/// The modification time in a file's status, and the time of its last change of any kind.
std::timespec ModificationTime(const struct stat& status);
std::timespec ChangeTime(const struct stat& status);
/// Whether the file system of an open file marks every change of a file by the clock of this
/// machine, so that equal change times mean equal content. False for file systems of other
/// machines, for those that make files up, and for unknown ones.
bool StampsChanges(int descriptor);
/// How long the machine has been suspended since it was started, in milliseconds; 0 where the
/// system does not tell. Grows by each suspension, and else by less than a second.
std::uint64_t SuspendedTime();
/// A number that becomes another one whenever the carrier of a network interface comes or goes; 0
/// where the system does not tell.
std::uint32_t CarrierChanges(const char* interface);
/// How many bytes of an address the system has filled in; less than its family has where the rest
/// is zero.
std::size_t SizeOfAddress(const sockaddr& address);
/// A close-on-exec UDP socket of a family (AF_INET, AF_INET6), deaf to multicast groups that other
/// sockets of this machine have joined. The caller closes it. -1 on failure, and errno tells why.
int OpenDatagramSocket(int family);
/// Makes what a socket sends to single addresses leave by an interface, given by its index,
/// whatever the routes say. Returns whether the system can.
bool SendByInterface(int socket, int family, unsigned int interface);
/// The ends of a close-on-exec, non-blocking pipe, the reading one first, which the caller closes.
/// Returns whether there is one.
bool OpenPipe(int ends[2]);
/// The account whose socket is at the other end of a TCP connection within this machine, given by
/// our socket. Nothing, which never means root, when the system does not tell: also once the other
/// end is closed, whoever had it. No rights are needed. Asks the system anew each time, which takes
/// some microseconds; any thread may call.
std::optional<uid_t> OwnerOf(int connection);

}  // namespace os
