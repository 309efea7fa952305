// What generated interfaces stand on: shared ownership, and the tie between an interface object and
// its binder.
//
// Threads: all functions may be called from any thread. None blocks on another process, except dump
// and handleShellCommand of a proxy.

#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace ndk {

// An object that only shared pointers own, and that can give one to itself. It comes into being
// through make() alone: new and delete are closed to everybody else.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;
    virtual ~SharedRefBase() = default;

    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        // The object and its counts side by side: who reads the one has found the others.
        std::shared_ptr<T> made = std::make_shared<T>(std::forward<Args>(args)...);
        SharedRefBase* base = made.get();
        base->this_ = made;
        return made;
    }

    // A pointer that shares ownership; null inside the constructor and the destructor.
    std::shared_ptr<SharedRefBase> ref() { return this_.lock(); }
    template <typename CHILD>
    std::shared_ptr<CHILD> ref() {
        return std::static_pointer_cast<CHILD>(ref());
    }

  protected:
    // For the destructors of derived classes; operator new is closed to those too.
    // NOLINTNEXTLINE(misc-new-delete-overloads)
    static void operator delete(void* memory) { ::operator delete(memory); }

  private:
    static void* operator new(std::size_t size) = delete;

    // Set once by make(), before anybody else knows the object.
    std::weak_ptr<SharedRefBase> this_;
};

// The base of every interface, of the implementing side as of the calling one.
class ICInterface : public SharedRefBase {
  public:
    ~ICInterface() override = default;

    // The binder that stands for this object in parcels.
    virtual SpAIBinder asBinder() = 0;
    // True for a proxy of an object in another process.
    virtual bool isRemote() = 0;
    // Writes the object's state to `fd`, which stays the caller's. Here: nothing, STATUS_OK.
    virtual binder_status_t dump(int fd, const char** args, uint32_t numArgs);
    // Here: STATUS_UNKNOWN_TRANSACTION.
    virtual binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                               uint32_t argc);

    // The implementation behind a local binder whose class comes from defineClass; null for a proxy
    // and for null.
    static std::shared_ptr<ICInterface> asInterface(AIBinder* binder);

    // A class whose objects hold their implementation strongly. AIBinder_new is given the
    // implementation as an ICInterface* that make() made.
    static AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                       AIBinder_Class_onTransact onTransact);

  private:
    // The user data of a local binder.
    struct ICInterfaceData {
        std::shared_ptr<ICInterface> interface;

        static std::shared_ptr<ICInterface> getInterface(AIBinder* binder);
        static void* onCreate(void* args);
        static void onDestroy(void* userData);
        static binder_status_t onDump(AIBinder* binder, int fd, const char** args,
                                      uint32_t numArgs);
        static binder_status_t onShellCommand(AIBinder* binder, int in, int out, int err,
                                              const char** argv, uint32_t argc);
    };
};

// The implementing side. The binder holds the object; the object knows its binder weakly and makes
// a new one when the last has gone.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    // Null if the object's last owner is gone (inside its destructor).
    SpAIBinder asBinder() override;
    bool isRemote() override { return false; }

  protected:
    // Makes the binder. Called with an internal lock held: it must not call asBinder.
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mutex_;
    ScopedAIBinder_Weak weak_binder_ GUARDED_BY(mutex_);
};

// The calling side: one binder, held for its whole life.
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
  public:
    explicit BpCInterface(const SpAIBinder& binder) : binder_(binder) {}

    SpAIBinder asBinder() override { return binder_; }
    bool isRemote() override { return AIBinder_isRemote(binder_.get()); }
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
        return AIBinder_dump(binder_.get(), fd, args, numArgs);
    }

  private:
    const SpAIBinder binder_;
};

inline binder_status_t ICInterface::dump(int, const char**, uint32_t) {
    return STATUS_OK;
}

inline binder_status_t ICInterface::handleShellCommand(int, int, int, const char**, uint32_t) {
    return STATUS_UNKNOWN_TRANSACTION;
}

inline std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
    return ICInterfaceData::getInterface(binder);
}

inline AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                                AIBinder_Class_onTransact onTransact) {
    AIBinder_Class* clazz = AIBinder_Class_define(interfaceDescriptor, ICInterfaceData::onCreate,
                                                  ICInterfaceData::onDestroy, onTransact);
    if (clazz == nullptr) return nullptr;
    AIBinder_Class_setOnDump(clazz, ICInterfaceData::onDump);
    AIBinder_Class_setHandleShellCommand(clazz, ICInterfaceData::onShellCommand);
    return clazz;
}

inline std::shared_ptr<ICInterface> ICInterface::ICInterfaceData::getInterface(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    void* data = AIBinder_getUserData(binder);
    return data == nullptr ? nullptr : static_cast<ICInterfaceData*>(data)->interface;
}

inline void* ICInterface::ICInterfaceData::onCreate(void* args) {
    return new ICInterfaceData{static_cast<ICInterface*>(args)->ref<ICInterface>()};
}

inline void ICInterface::ICInterfaceData::onDestroy(void* userData) {
    delete static_cast<ICInterfaceData*>(userData);
}

inline binder_status_t ICInterface::ICInterfaceData::onDump(AIBinder* binder, int fd,
                                                            const char** args, uint32_t numArgs) {
    std::shared_ptr<ICInterface> object = getInterface(binder);
    return object == nullptr ? STATUS_DEAD_OBJECT : object->dump(fd, args, numArgs);
}

inline binder_status_t ICInterface::ICInterfaceData::onShellCommand(AIBinder* binder, int in,
                                                                    int out, int err,
                                                                    const char** argv,
                                                                    uint32_t argc) {
    std::shared_ptr<ICInterface> object = getInterface(binder);
    return object == nullptr ? STATUS_DEAD_OBJECT
                             : object->handleShellCommand(in, out, err, argv, argc);
}

template <typename INTERFACE>
SpAIBinder BnCInterface<INTERFACE>::asBinder() {
    // Declared before the lock: whatever ends with it ends unlocked.
    const std::shared_ptr<SharedRefBase> self = this->ref();
    if (self == nullptr) return SpAIBinder();
    std::lock_guard<std::mutex> lock(mutex_);
    SpAIBinder binder = weak_binder_.promote();
    if (binder.get() == nullptr) {
        binder = createBinder();
        weak_binder_.set(AIBinder_Weak_new(binder.get()));
    }
    return binder;
}

}  // namespace ndk
