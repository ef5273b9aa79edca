#include "Seams.h"

#include "FastClock.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <new>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

namespace {

/** Longest wait while the seams are open: an answer of a thread in this process is there by then. */
constexpr int64_t k_llLongestWait = 150'000'000;

constinit std::atomic<bool> s_bOpen{false};
constinit std::atomic<uint8_t> s_ucSeam{0};
constinit std::atomic<uint32_t> s_ulToGo{0};
constinit std::atomic<bool> s_bThreads{false};
constinit std::atomic<bool> s_bFailed{false};
constinit std::atomic<int64_t> s_llBlocks{0};
constinit thread_local bool t_bCounted = false;

/** Counts a call; true: it is the one that fails. */
bool Fails(E_SEAM i_eSeam, int i_lErrno)
{
    if (!t_bCounted || !s_bOpen || s_ucSeam != static_cast<uint8_t>(i_eSeam) || s_ulToGo == 0 ||
        --s_ulToGo != 0) {
        return false;
    }
    s_bFailed = true;
    errno = i_lErrno;
    return true;
}

void* Counted(void* i_pBlock)
{
    s_llBlocks += i_pBlock != nullptr ? 1 : 0;
    return i_pBlock;
}

void* Allocate(size_t i_ulSize)
{
    return Fails(E_SEAM::Memory, ENOMEM) ? nullptr : Counted(__libc_malloc(i_ulSize));
}

template <typename F>
F* Next(F* /*i_pfnType*/, const char* i_pszName)
{
    static const auto s_pfnFind = [] {
        void* l_pFn = nullptr;
        for (const char* l_pszVersion : {"GLIBC_2.34", "GLIBC_2.2.5", "GLIBC_2.17", "GLIBC_2.4"}) {
            l_pFn = l_pFn == nullptr ? dlvsym(RTLD_NEXT, "dlsym", l_pszVersion) : l_pFn;
        }
        return reinterpret_cast<void* (*)(void*, const char*)>(l_pFn);
    }();
    return reinterpret_cast<F*>(s_pfnFind(RTLD_NEXT, i_pszName));
}
#define NEXT(name) static const auto s_pfnNext = Next(&name, #name)

struct S_START
{
    void* (*pfnRun)(void*);
    void* pArgument;
};

void* RunCounted(void* i_pStart)
{
    t_bCounted = s_bThreads;
    const S_START l_Start = *static_cast<S_START*>(i_pStart);
    __libc_free(i_pStart);
    return l_Start.pfnRun(l_Start.pArgument);
}

} // namespace

void OpenSeams(E_SEAM i_eSeam, uint32_t i_ulNth, bool i_bThreads)
{
    s_bThreads = i_bThreads;
    s_ucSeam = static_cast<uint8_t>(i_eSeam);
    s_ulToGo = i_ulNth;
    s_bFailed = false;
    s_bOpen = true;
    HurryClock(k_llLongestWait);
}

void CountThisThread(bool i_bCounted)
{
    t_bCounted = i_bCounted;
}

bool CloseSeams()
{
    s_bOpen = false;
    HurryClock(-1);
    return s_bFailed;
}

bool HasFailed()
{
    return s_bFailed;
}

int64_t LiveBlocks()
{
    return s_llBlocks;
}

#pragma GCC visibility push(default)
extern "C" {

void* malloc(size_t i_ulSize)
{
    return Allocate(i_ulSize);
}

void* calloc(size_t i_ulCount, size_t i_ulSize)
{
    return Fails(E_SEAM::Memory, ENOMEM) ? nullptr : Counted(__libc_calloc(i_ulCount, i_ulSize));
}

void* realloc(void* io_pBlock, size_t i_ulSize)
{
    if (Fails(E_SEAM::Memory, ENOMEM)) {
        return nullptr;
    }
    void* l_pBlock = __libc_realloc(io_pBlock, i_ulSize);
    return io_pBlock == nullptr ? Counted(l_pBlock) : l_pBlock;
}

void* aligned_alloc(size_t i_ulAlignment, size_t i_ulSize)
{
    return Fails(E_SEAM::Memory, ENOMEM) ? nullptr
                                         : Counted(__libc_memalign(i_ulAlignment, i_ulSize));
}

int posix_memalign(void** o_ppBlock, size_t i_ulAlignment, size_t i_ulSize)
{
    *o_ppBlock = aligned_alloc(i_ulAlignment, i_ulSize);
    return *o_ppBlock == nullptr ? ENOMEM : 0;
}

void free(void* i_pBlock)
{
    s_llBlocks -= i_pBlock != nullptr ? 1 : 0;
    __libc_free(i_pBlock);
}

/** A call that fails as the given seam with the given error, or goes on to the system's. */
#define SEAM(type, name, seam, error, failed, formal, actual)                                      \
    type name formal                                                                               \
    {                                                                                              \
        NEXT(name);                                                                                \
        return Fails(E_SEAM::seam, error) ? failed : s_pfnNext actual;                             \
    }
SEAM(void*, dlopen, Library, ENOENT, nullptr, (const char* n, int f), (n, f))
SEAM(void*, dlsym, EntryPoint, 0, nullptr, (void* h, const char* n), (h, n))
SEAM(int, eventfd, Open, EMFILE, -1, (unsigned c, int f), (c, f))
SEAM(ssize_t, read, Read, EIO, -1, (int d, void* b, size_t s), (d, b, s))
SEAM(ssize_t, write, Write, EIO, -1, (int d, const void* b, size_t s), (d, b, s))
SEAM(int, poll, Poll, ENOMEM, -1, (pollfd * p, nfds_t c, int t), (p, c, t))
SEAM(int, ppoll, Poll, ENOMEM, -1, (pollfd * p, nfds_t c, const timespec* t, const sigset_t* m),
     (p, c, t, m))
SEAM(int, posix_spawn, Process, 0, EAGAIN,
     (pid_t * p, const char* n, const posix_spawn_file_actions_t* f, const posix_spawnattr_t* x,
      char* const a[], char* const e[]),
     (p, n, f, x, a, e))

int open(const char* i_pszPath, int i_lFlags, ...)
{
    NEXT(open);
    va_list l_Arguments;
    va_start(l_Arguments, i_lFlags);
    const int l_lMode = (i_lFlags & O_CREAT) != 0 ? va_arg(l_Arguments, int) : 0;
    va_end(l_Arguments);
    return Fails(E_SEAM::Open, EMFILE) ? -1 : s_pfnNext(i_pszPath, i_lFlags, l_lMode);
}
#ifndef __USE_FILE_OFFSET64 // where it is set, the one above is open64 already
int open64(const char*, int, ...) __attribute__((alias("open")));
#endif

int pthread_create(pthread_t* o_pThread, const pthread_attr_t* i_pAttributes,
                   void* (*i_pfnRun)(void*), void* i_pArgument)
{
    NEXT(pthread_create);
    if (!t_bCounted) {
        return s_pfnNext(o_pThread, i_pAttributes, i_pfnRun, i_pArgument);
    }
    if (Fails(E_SEAM::Thread, 0)) {
        return EAGAIN;
    }
    auto* l_pStart = static_cast<S_START*>(__libc_malloc(sizeof(S_START)));
    *l_pStart = {i_pfnRun, i_pArgument};
    return s_pfnNext(o_pThread, i_pAttributes, RunCounted, l_pStart);
}

} // extern "C"

#pragma GCC visibility pop

void* operator new(size_t i_ulSize)
{
    void* l_pBlock = Allocate(i_ulSize);
    if (l_pBlock == nullptr) {
        throw std::bad_alloc();
    }
    return l_pBlock;
}
void* operator new[](size_t i_ulSize)
{
    return operator new(i_ulSize);
}
void* operator new(size_t i_ulSize, const std::nothrow_t&) noexcept
{
    return Allocate(i_ulSize);
}
void* operator new[](size_t i_ulSize, const std::nothrow_t&) noexcept
{
    return Allocate(i_ulSize);
}
void operator delete(void* i_pBlock) noexcept
{
    free(i_pBlock);
}
void operator delete[](void* i_pBlock) noexcept
{
    free(i_pBlock);
}
void operator delete(void* i_pBlock, size_t) noexcept
{
    free(i_pBlock);
}
void operator delete[](void* i_pBlock, size_t) noexcept
{
    free(i_pBlock);
}
