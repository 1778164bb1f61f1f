// The port: a listening Unix socket and its name.
#pragma once

#include "descriptor.h"

#include <sys/un.h>

namespace router
{

class listener
{
  public:
    // Listens at the path that the environment names, or takes the listening socket that it gives the
    // descriptor of. False, and why on standard error: it cannot be reached.
    [[nodiscard]] bool open();

    [[nodiscard]] int socket() const { return socket_.get(); }

    // The next station; none, and errno, when there is none or no descriptor for it.
    [[nodiscard]] owned::descriptor accept() const;

    // From then on another process may take the name. Whoever has opened it gives it up, before it closes.
    void give_up_name() const;

    // Tells on standard error that `what` the port failed for the reason in errno. Returns false.
    bool fail(const char *what) const;

  private:
    [[nodiscard]] bool take_inherited(const char *number);
    [[nodiscard]] bool choose_path();
    [[nodiscard]] bool path_is_free() const;
    [[nodiscard]] bool listen_at_path();

    char path_[sizeof(sockaddr_un::sun_path)] = "";
    owned::descriptor socket_;
    bool inherited_ = false;
};

} // namespace router
