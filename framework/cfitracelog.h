// Tracing and shared ownership, compiled into host and plug-in alike.
//
// Everything in this header except `CFiTraceLog::trace` is header code: host and plug-in each contain it, so its
// layout, its slot order and its locking are a contract between binaries. docs/contract.md says how it may grow, and
// how slots are counted.
#ifndef KIVCLAIM_FRAMEWORK_CFITRACELOG_H
#define KIVCLAIM_FRAMEWORK_CFITRACELOG_H

#include "framework/ztfi_export.h"

#include <ace/OS_NS_Thread.h>
#include <ace/SString.h>
#include <ace/Thread_Mutex.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <map>

namespace ztfi_pdk_4_4 {

// The levels of trace records. Levels 0, 4 and 5 are never used by the plug-in.
enum ZTFI_TRACE_LEVEL : int {
    ZTFI_TRACE_LEVEL_ERROR = 1,        // an exception, or a failure that ends the operation
    ZTFI_TRACE_LEVEL_WARNING = 2,      // a failed command, an unexpected status, a swallowed exception
    ZTFI_TRACE_LEVEL_INFORMATION = 3,  // decisions and results worth keeping in a normal log
    ZTFI_TRACE_LEVEL_DETAIL = 6        // entry and exit of functions, step-by-step values
};

template <class T>
class CFiContextSingletonAllocator {
};
template <class T>
class CFiNullAllocator {
};
template <class T, class Allocator = CFiContextSingletonAllocator<T>>
class CFiSmartPtr;

// The reference count of every shared framework object; always inherited virtually.
//
// Threads: none of the operations locks. A caller that changes the count holds `lock`, as CFiSmartPtr does.
// Ownership: an object with a count of n is kept alive by n holders; the last one to release it deletes it.
// Failure: none.
class ZTFI_API CFiRefCount {
public:
    CFiRefCount() = default;
    CFiRefCount(const CFiRefCount&) = delete;
    CFiRefCount& operator=(const CFiRefCount&) = delete;

    // Slot 1 (complete and deleting destructor).
    virtual ~CFiRefCount() = default;
    // Slot 2: adds one holder; returns the new count.
    virtual unsigned int increment() { return ++count; }
    // Slot 3: removes one holder; returns the new count. The count must be above 0.
    virtual unsigned int decrement() { return --count; }
    // Slot 4: returns the count.
    virtual unsigned int getCount() { return count; }

protected:
    template <class T, class Allocator>
    friend class CFiSmartPtr;

    std::uint32_t count = 0;  // the number of holders
    ACE_Thread_Mutex lock{};  // held while the count changes
};

// A counting pointer to a T that has CFiRefCount as a virtual base. Count and mutex live in the referent.
//
// Threads: several threads may copy and release different pointers to one referent; one pointer belongs to one
// thread at a time. The referent's mutex is held only while the count changes, never while it is deleted.
// Ownership: a held pointer counts for one. `Allocator` is part of the name only: the last holder always deletes
// the referent through its virtual destructor.
// Failure: when a mutex cannot be locked, operations with a result return -1, and nothing is counted.
template <class T, class Allocator>
class CFiSmartPtr {
public:
    CFiSmartPtr() = default;

    // Deliberate: the pointer is stored before the mutex is locked, so a failed lock leaves a copy that holds
    // the referent without having counted it. Pinned by SmartPointer.CopyKeepsThePointerUncountedWhenTheLockFails.
    CFiSmartPtr(const CFiSmartPtr& other) : referent(other.referent)
    {
        if (referent != nullptr && lockOf(referent)) {  // NOLINT(clang-analyzer-cplusplus.NewDelete): as in get()
            referent->increment();
            unlock(referent);
        }
    }

    // Releases its referent, then holds that of `other`. When the mutex of the new referent cannot be locked, the
    // pointer stays as the release left it: normally empty.
    CFiSmartPtr& operator=(const CFiSmartPtr& other)
    {
        if (this == &other) {
            return *this;
        }
        release();
        if (other.referent == nullptr) {
            referent = nullptr;
        } else if (lockOf(other.referent)) {
            referent = other.referent;
            referent->increment();
            unlock(referent);
        }
        return *this;
    }

    ~CFiSmartPtr() { release(); }

    // Releases its referent, then holds `object` (null: nothing). Returns the new count; for null the result of the
    // release, or -1 when nothing was held; -1 when the mutex could not be locked. Acquiring the current referent again
    // is allowed only while another holder keeps it alive, because it is released first.
    int acquire(T* object)
    {
        int result = -1;
        if (referent != nullptr) {
            result = release();
        }
        if (object == nullptr) {
            referent = nullptr;
            return result;
        }
        if (!lockOf(object)) {
            return -1;
        }
        referent = object;
        result = static_cast<int>(object->increment());
        unlock(object);
        return result;
    }

    // Releases the referent, and deletes it when this was the last holder. Returns the new count, 0 when the referent
    // was deleted, -1 when the pointer is empty or the mutex could not be locked (the pointer still holds it then).
    int release()
    {
        if (referent == nullptr || !lockOf(referent)) {  // NOLINT(clang-analyzer-cplusplus.NewDelete): as in get()
            return -1;
        }
        const unsigned int newCount = referent->decrement();
        if (newCount != 0) {
            T* const shared = referent;
            referent = nullptr;
            unlock(shared);
            return static_cast<int>(newCount);
        }
        // Deliberate: the count is put back to one, so that a destructor which passes its own object on does not
        // delete it a second time. Pinned by SmartPointer.TheLastReleaseDeletesWithTheCountPutBackToOne.
        referent->increment();
        unlock(referent);
        delete referent;
        referent = nullptr;
        return 0;
    }

    // The referent, or null. The pointer still holds it.
    T* get() const { return referent; }  // NOLINT(clang-analyzer-cplusplus.NewDelete): it cannot follow the count
    // The referent; the pointer must not be empty.
    T* operator->() const { return referent; }

private:
    static bool lockOf(T* object) { return ACE_OS::mutex_lock(&mutexOf(object)) != -1; }
    static void unlock(T* object) { ACE_OS::mutex_unlock(&mutexOf(object)); }
    static ACE_thread_mutex_t& mutexOf(T* object) { return static_cast<CFiRefCount*>(object)->lock.lock(); }

    T* referent = nullptr;
};

// A message of the host's error manager. The plug-in never creates or reads one.
class ZTFI_API CFiMessage : public virtual CFiRefCount {
public:
    ~CFiMessage() override = default;
};

// The host's table of messages by code. The plug-in never calls it; it only contains its destructor.
//
// Ownership: holds its messages and owns `buffer` (from new[]).
class ZTFI_API CFiErrorManager : public virtual CFiRefCount {
public:
    ~CFiErrorManager() override { delete[] buffer; }

protected:
    std::map<std::uint32_t, CFiSmartPtr<CFiMessage, CFiNullAllocator<CFiMessage>>> messages{};  // by code
    char* buffer = nullptr;  // the host's; from new[] or null
};

// The host's trace log: created by the host, shared by reference count, written to by host and plug-in.
//
// Threads: a host's `trace` must be callable by several threads at once.
// Ownership: the last holder to release it deletes it; that may be a module of the plug-in.
// Failure: an exception of `trace` passes through the traced operation to its caller.
class ZTFI_API CFiTraceLog : public virtual CFiRefCount {
public:
    // Releases the error manager first, then destroys the texts from the last to the first.
    ~CFiTraceLog() override = default;

    // Writes one record. Supplied by the host: the plug-in only calls it. `level` is one of ZTFI_TRACE_LEVEL;
    // `format` and its arguments are printf's.
    void trace(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

protected:
    ACE_String_Base<char> texts[5];               // their meaning is the host's
    CFiSmartPtr<CFiErrorManager> errorManager{};  // the host's; may be empty
};

// The holder of a trace log: the base of every object of plug-in and host that does work.
//
// Threads: registerTraceLog must not run while another thread uses the object.
// Ownership: the registered log is counted until another one is registered or the object ends.
// Failure: no result depends on whether a log is registered.
class ZTFI_API CFiTraceable {
public:
    // Slot 1 (complete and deleting destructor): releases the log.
    virtual ~CFiTraceable() = default;
    // Slot 2: replaces the log; an empty pointer ends tracing. Registering the object's own `traceLog` does nothing.
    virtual void registerTraceLog(const CFiSmartPtr<CFiTraceLog, CFiContextSingletonAllocator<CFiTraceLog>>& log)
    {
        traceLog = log;
    }

protected:
    // The registered log; empty: nothing is traced. Modules of a host write their records through it.
    CFiSmartPtr<CFiTraceLog, CFiContextSingletonAllocator<CFiTraceLog>> traceLog{};
};

// Writes "Entering Function" when it is constructed and "Exiting Function" when it is destroyed; lives on the stack of
// the traced function and holds the log meanwhile.
//
// Threads: belongs to one.
// Ownership: the name and the path are not copied and must outlive it.
// Failure: an exception of `trace` propagates, from the destructor as well. Only while another exception is already
// propagating through the traced function is the second one dropped, because it would end the process. The log is
// released in every case. Declare a returned string or list before the tracer: g++ and clang++ leak a result that is
// declared after it when the exit record throws.
class ZTFI_API CFiTraceLogFunction {
public:
    // Writes the entry record, unless the log is empty or a text is null. `functionName` is the bare name.
    CFiTraceLogFunction(const CFiSmartPtr<CFiTraceLog, CFiContextSingletonAllocator<CFiTraceLog>>& heldLog,
                        const char* functionName, int sourceLine, const char* sourcePath)
        : log(heldLog), function(functionName), line(sourceLine), file(baseName(sourcePath))
    {
        if (!traces()) {
            return;
        }
        exceptionsAtEntry = std::uncaught_exceptions();
        log->trace(ZTFI_TRACE_LEVEL_DETAIL, "Entering Function %s [%d, %s]", function, line, file);
    }
    CFiTraceLogFunction(const CFiTraceLogFunction&) = delete;
    CFiTraceLogFunction& operator=(const CFiTraceLogFunction&) = delete;

    // Slot 1 (complete and deleting destructor).
    virtual ~CFiTraceLogFunction() noexcept(false)  // NOLINT(bugprone-exception-escape): as promised above
    {
        if (!traces()) {
            return;
        }
        try {
            traceExit();
        } catch (...) {
            if (std::uncaught_exceptions() <= exceptionsAtEntry) {
                throw;
            }
        }
    }

private:
    bool traces() const { return log.get() != nullptr && function != nullptr && file != nullptr; }

    // Deliberate: only the exit record has a short form. Pinned by ScopeTracer.LineZeroShortensOnlyTheExitRecord.
    void traceExit()
    {
        if (line != 0) {
            log->trace(ZTFI_TRACE_LEVEL_DETAIL, "Exiting Function %s [%d, %s]", function, line, file);
        } else {
            log->trace(ZTFI_TRACE_LEVEL_DETAIL, "Exiting Function %s", function);
        }
    }

    // Deliberate: a name without '/' is replaced by this header's own path. Pinned by
    // ScopeTracer.ABareFileNameIsReplacedByTheHeadersPath.
    static const char* baseName(const char* path)
    {
        if (path == nullptr) {
            return nullptr;
        }
        const char* const lastSlash = std::strrchr(path, '/');
        return lastSlash != nullptr ? lastSlash + 1 : "framework/cfitracelog.h";
    }

    CFiSmartPtr<CFiTraceLog, CFiContextSingletonAllocator<CFiTraceLog>> log;
    const char* function;
    int line;
    int exceptionsAtEntry = 0;  // in the padding after `line`, so that the other fields keep their offsets
    const char* file;
};

}  // namespace ztfi_pdk_4_4

#endif
