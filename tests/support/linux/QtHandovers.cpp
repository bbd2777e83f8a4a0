// SPDX-License-Identifier: Apache-2.0
//
// Only in builds with the thread sanitizer. Qt is not built with it, and its mutexes are not those
// of pthreads. So the sanitizer does not see that a queued call happens after it was posted, and
// that a job of a thread pool happens after its start. These definitions replace Qt's in the
// programs that link this file, tell the sanitizer about both, and call Qt's own.
#include <QMetaObject>
#include <QObject>
#include <QRunnable>
#include <QThreadPool>

#include <dlfcn.h>

#include <functional>
#include <utility>

extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);

namespace {

template <typename Function>
Function* original(const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

/// Calls another slot object, which it owns.
class Handover final : public QtPrivate::QSlotObjectBase {
public:
    explicit Handover(QSlotObjectBase* slot) : QSlotObjectBase(&implementation), slot_(slot) {
        __tsan_release(this);
    }
    ~Handover() { slot_->destroyIfLastRef(); }

private:
    static void implementation(
        int which, QSlotObjectBase* base, QObject* receiver, void** arguments, bool* result) {
        auto* const self = static_cast<Handover*>(base);
        __tsan_acquire(self);
        if (which == Destroy) {
            delete self;
        } else if (which == Call) {
            self->slot_->call(receiver, arguments);
            // The posting thread may be the one that destroys it.
            __tsan_release(self);
        } else if (result != nullptr) {
            *result = false;
        }
    }

    QSlotObjectBase* slot_;
};

} // namespace

#define ORVEL_INVOKE_METHOD                                                                        \
    "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTy" \
    "peEPv"

extern "C" bool orvelInvokeMethod(
    QObject* object,
    QtPrivate::QSlotObjectBase* slot,
    Qt::ConnectionType type,
    void* result) __asm__(ORVEL_INVOKE_METHOD);

bool orvelInvokeMethod(
    QObject* object, QtPrivate::QSlotObjectBase* slot, Qt::ConnectionType type, void* result) {
    static auto* const qt =
        original<bool(QObject*, QtPrivate::QSlotObjectBase*, Qt::ConnectionType, void*)>(
            ORVEL_INVOKE_METHOD);
    return qt(object, new Handover(slot), type, result);
}

/// A job of a pool. The pool's thread reads the job before the sanitizer can be told about the
/// handover, so `run` itself is not checked.
class Job final : public QRunnable {
public:
    explicit Job(std::function<void()> job) : job_(std::move(job)) { __tsan_release(this); }

    __attribute__((no_sanitize("thread"))) void run() override {
        __tsan_acquire(this);
        call();
    }

private:
    void call() const { job_(); }

    std::function<void()> job_;
};

#define ORVEL_START "_ZN11QThreadPool5startESt8functionIFvvEEi"

extern "C" void
orvelStart(QThreadPool* pool, std::function<void()> job, int priority) __asm__(ORVEL_START);

void orvelStart(QThreadPool* pool, std::function<void()> job, int priority) {
    // The pool deletes it.
    pool->start(new Job(std::move(job)), priority);
}
