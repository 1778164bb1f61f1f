// `station page`, and the page beside a line.
#pragma once

#include "station/catalogue/command_line.h"
#include "station/catalogue/request.h"
#include "station/page/server.h"

#include <memory>
#include <string>
#include <vector>

namespace station
{

// `words` stand behind "page". Returns the exit status; throws UsageError and HelpAsked.
int serve_page(const std::vector<std::string> &words, Settings &settings);

// --page and --token of a command.
class PageOptions
{
  public:
    void add(CommandLine &line, const std::string &usual_address);
    bool is_wanted() const { return !address_.empty(); }

    // Listens where it shall, so that what is wrong shows before anything else is begun. Throws UsageError,
    // and page::Error where the address cannot be had.
    void listen();
    const page::Listener &listener() const { return *listener_; }
    const std::string &token() const { return token_; }
    std::string url() const;

  private:
    std::string address_, token_;
    std::unique_ptr<page::Listener> listener_;
};

} // namespace station
