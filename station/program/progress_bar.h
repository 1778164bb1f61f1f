// One line below the output, on a terminal that can take it back.
#pragma once

#include "station/program/terminal.h"

#include <cstdio>
#include <string>
#include <unistd.h>

namespace station
{

class ProgressBar
{
  public:
    explicit ProgressBar(bool shown) : shown_(shown && moves_cursor(STDERR_FILENO)) {}

    void show(size_t done, size_t all, const std::string &name) const
    {
        if (!shown_)
            return;
        constexpr size_t width = 30;
        const size_t filled = all ? done * width / all : width;
        std::fprintf(stderr, "\r\033[K[%s%s] %zu/%zu %s", std::string(filled, '#').c_str(),
                     std::string(width - filled, '.').c_str(), done, all, name.c_str());
        std::fflush(stderr);
    }
    void clear() const
    {
        if (!shown_)
            return;
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
    }

  private:
    bool shown_;
};

} // namespace station
