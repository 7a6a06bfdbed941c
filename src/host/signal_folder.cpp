#include "host/signal_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace host {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

// State of this file.
char sFolder[PATH_MAX];                              // what a signal removes; empty: nothing
struct sigaction sBefore[std::size(kSignals)] = {};  // what to put back

// Only what may be called at any point: readdir, for one, allocates.
void removeFolderAndEnd(int signal) {
    const int folder = ::open(sFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder >= 0) {
        alignas(dirent64) char entries[4096];
        long size = 0;
        while ((size = ::syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0) {
            for (long at = 0; at < size;) {
                const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
                ::unlinkat(folder, entry->d_name, 0);
                at += entry->d_reclen;
            }
        }
        ::rmdir(sFolder);
    }
    ::raise(signal);  // its usual action, which SA_RESETHAND has put back, follows when this returns
}

sigset_t signalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kSignals) {
        sigaddset(&set, signal);
    }
    return set;
}

}  // namespace

std::string makeSignalFolder(const std::string& prefix) {
    std::string path = prefix + "XXXXXX";
    if (path.size() >= sizeof sFolder) {
        errno = ENAMETOOLONG;
        return {};
    }
    struct sigaction action {};
    action.sa_handler = removeFolderAndEnd;
    action.sa_mask = signalSet();
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigset_t before;
    ::sigprocmask(SIG_BLOCK, &action.sa_mask, &before);
    const bool made = ::mkdtemp(path.data()) != nullptr;
    const int error = errno;
    if (made) {
        std::memcpy(sFolder, path.c_str(), path.size() + 1);
        for (std::size_t i = 0; i < std::size(kSignals); ++i) {
            ::sigaction(kSignals[i], &action, &sBefore[i]);
            if (sBefore[i].sa_handler == SIG_IGN) {  // as nohup asks
                ::sigaction(kSignals[i], &sBefore[i], nullptr);
            }
        }
    }
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return made ? path : std::string();
}

void releaseSignalFolder() {
    if (sFolder[0] == 0) {
        return;
    }
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
        ::sigaction(kSignals[i], &sBefore[i], nullptr);
    }
    sFolder[0] = 0;
}

}  // namespace host
