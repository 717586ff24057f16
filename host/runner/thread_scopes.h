// The scopes that apply to the commands of one thread. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_THREAD_SCOPES_H
#define KIVCLAIM_HOST_RUNNER_THREAD_SCOPES_H

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>
#include <vector>

namespace kivclaim::host_internal {

// The open scopes of the calling thread, outermost first. A scope is opened on the thread that it applies to, and may
// be closed on any thread, at any time, also by a function that a run on the thread calls: a run keeps the scope that
// it has found, and a scope that another thread closed is removed when its own thread searches the list the next time.
//
// Threads: each has its own list. Ownership: shared; the last user of a scope's state deletes it.
// Failure: `open` throws std::bad_alloc.
template <class State>
class ThreadScopes {
public:
    class Scope {
    public:
        explicit Scope(State&& itsState) : state(std::move(itsState)) {}

        State state;  // used on the scope's thread only

    private:
        friend class ThreadScopes;
        std::atomic<bool> isOpen{true};
    };

    static std::shared_ptr<Scope> open(State state)
    {
        auto scope = std::make_shared<Scope>(std::move(state));
        if (!isThreadEnding) {
            openScopes().push_back(scope);
        }
        return scope;
    }

    static void close(const std::shared_ptr<Scope>& scope)
    {
        scope->isOpen = false;
        removeClosed();
    }

    // The innermost open scope that `isWanted`, or null.
    template <class Question>
    static std::shared_ptr<Scope> find(Question isWanted)
    {
        if (isThreadEnding) {
            return nullptr;
        }
        removeClosed();
        const std::vector<std::shared_ptr<Scope>>& scopes = openScopes();
        const auto found =
            std::find_if(scopes.rbegin(), scopes.rend(), [&](const auto& scope) { return isWanted(scope->state); });
        return found == scopes.rend() ? nullptr : *found;
    }

private:
    // Destroyed with the thread; scopes that are still open then are closed later by another thread.
    struct List {
        ~List() { isThreadEnding = true; }
        std::vector<std::shared_ptr<Scope>> scopes;
    };

    // In each thread's static storage: otherwise the first access on a thread allocates it, and the C library ends the
    // process when that allocation fails.
    static std::vector<std::shared_ptr<Scope>>& openScopes()
    {
        [[gnu::tls_model("initial-exec")]] static thread_local List list;
        return list.scopes;
    }

    // One at a time, and out of the list before it ends: a state that ends may close further scopes.
    static void removeClosed()
    {
        if (isThreadEnding) {
            return;
        }
        std::vector<std::shared_ptr<Scope>>& scopes = openScopes();
        const auto firstClosed = [&] {
            return std::find_if(scopes.begin(), scopes.end(), [](const auto& scope) { return !scope->isOpen; });
        };
        for (auto closed = firstClosed(); closed != scopes.end(); closed = firstClosed()) {
            const std::shared_ptr<Scope> removed = std::move(*closed);
            scopes.erase(closed);
        }
    }

    [[gnu::tls_model("initial-exec")]] static inline thread_local bool isThreadEnding = false;
};

}  // namespace kivclaim::host_internal

#endif
