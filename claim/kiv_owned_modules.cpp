#include "claim/kiv_owned_modules.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

namespace kivclaim {

namespace {

// Places are never freed, only reused, so walking along them needs no lock.
struct OwnedModulePlace {
    std::atomic<const CKivDeviceClaimBase*> module;
    OwnedModulePlace* next;
};

std::atomic<OwnedModulePlace*> firstPlace{nullptr};

OwnedModulePlace* placeOf(const CKivDeviceClaimBase* module)
{
    OwnedModulePlace* place = firstPlace.load(std::memory_order_acquire);
    while (place != nullptr && place->module.load(std::memory_order_relaxed) != module) {
        place = place->next;
    }
    return place;
}

}  // namespace

bool isOwnedModule(const CKivDeviceClaimBase* module)
{
    return placeOf(module) != nullptr;
}

void noteOwnedModule(const CKivDeviceClaimBase* module)
{
    for (OwnedModulePlace* place = placeOf(nullptr); place != nullptr; place = placeOf(nullptr)) {
        const CKivDeviceClaimBase* noModule = nullptr;
        if (place->module.compare_exchange_strong(noModule, module, std::memory_order_relaxed)) {
            return;
        }
    }
    auto* const place = new (std::nothrow) OwnedModulePlace{{module}, firstPlace.load(std::memory_order_relaxed)};
    while (place != nullptr && !firstPlace.compare_exchange_weak(place->next, place, std::memory_order_release)) {
    }
}

void forgetOwnedModule(const CKivDeviceClaimBase* module)
{
    OwnedModulePlace* const place = placeOf(module);
    if (place != nullptr) {
        place->module.store(nullptr, std::memory_order_relaxed);
    }
}

// True between this function's frame and the oldest one: stacks grow downwards. If the C library does not know where
// the stack of this thread is, no object counts as being on it.
bool isOnThisThreadsStack(const void* object)
{
    const auto place = reinterpret_cast<std::uintptr_t>(object);
    if (place < reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0))) {
        return false;  // nearly every module; spares the C library a look at /proc for the main thread's stack
    }
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return false;
    }
    void* lowest = nullptr;
    std::size_t size = 0;
    const bool isKnown = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
    pthread_attr_destroy(&attributes);
    return isKnown && place < reinterpret_cast<std::uintptr_t>(lowest) + size &&
           place >= reinterpret_cast<std::uintptr_t>(lowest);
}

}  // namespace kivclaim
