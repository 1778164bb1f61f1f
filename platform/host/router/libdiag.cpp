// libdiag of a workstation: the C interface to the packet router.
#include "diag.h"
#include "export.h"
#include "log.h"
#include "server.h"

#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>

using router::server;

static constexpr int HANDLER_GRACE_MS = 5000; // for a handler that runs at the end

// The thread has a share of its server, so that nothing goes away under a handler that is left behind.
static std::mutex connection_lock;
static std::shared_ptr<server> connection;
static std::weak_ptr<server> left_behind;
static pthread_t thread;

static void *run(void *argument)
{
    const std::unique_ptr<std::shared_ptr<server>> share(static_cast<std::shared_ptr<server> *>(argument));
    (*share)->run();
    return nullptr;
}

static bool start(const std::shared_ptr<server> &fresh)
{
    auto *share = new (std::nothrow) std::shared_ptr<server>(fresh);
    errno = share ? pthread_create(&thread, nullptr, run, share) : ENOMEM;
    if (errno == 0)
        return true;
    perror("libdiag: cannot start a thread");
    delete share;
    fresh->give_up_name();
    return false;
}

extern "C" EXPORT bool Diag_LSM_Init(uint8_t *unused)
{
    (void)unused;
    const std::lock_guard<std::mutex> guard(connection_lock);
    if (connection)
        return true;
    if (!left_behind.expired()) { // handlers run one at a time
        fprintf(stderr, "libdiag: a handler of the last connection has not returned\n");
        return false;
    }
    std::shared_ptr<server> fresh(new (std::nothrow) server);
    if (!fresh || !fresh->open() || !start(fresh))
        return false;
    connection = std::move(fresh);
    return true;
}

extern "C" EXPORT bool Diag_LSM_DeInit(void)
{
    std::shared_ptr<server> ending;
    {
        const std::lock_guard<std::mutex> guard(connection_lock);
        if (!connection || pthread_equal(pthread_self(), thread) != 0)
            return false;
        ending = std::move(connection);
    }
    ending->stop();
    const bool ended = ending->ends_within(HANDLER_GRACE_MS);
    if (ended) {
        pthread_join(thread, nullptr);
    } else {
        __android_log_print(router::ANDROID_LOG_WARN, router::TAG,
                            "the handler of 0x%04X does not return: left behind\n", ending->code());
        pthread_detach(thread);
        const std::lock_guard<std::mutex> guard(connection_lock);
        left_behind = ending;
    }
    ending->give_up_name();
    router::forget_tables();
    return ended;
}

extern "C" EXPORT void diagpkt_tbl_reg(const diagpkt_table *table)
{
    if (!table || !router::add_table(*table)) {
        __android_log_print(router::ANDROID_LOG_WARN, router::TAG, "a table is not registered: %s\n",
                            !table ? "it is none" : "there are too many");
        return;
    }
    const std::lock_guard<std::mutex> guard(connection_lock);
    if (connection)
        connection->wake();
}

extern "C" EXPORT void *diagpkt_subsys_alloc(unsigned int subsystem, unsigned int code, unsigned int length)
{
    (void)subsystem; // the handler copies both from the request
    (void)code;
    return router::allocate_response(length);
}
