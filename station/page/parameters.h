// What stands behind the question mark of a request.
#pragma once

#include "station/page/message.h"
#include "station/records/source.h"

#include <initializer_list>
#include <stdexcept>
#include <string>

namespace station::page
{

// A parameter that cannot be; the text says which and why.
struct Unfit : std::runtime_error {
    using runtime_error::runtime_error;
};

class Parameters
{
  public:
    // Throws Unfit when there are others than the known ones, or one stands there twice.
    Parameters(const Request &request, std::initializer_list<const char *> known);

    // Empty when it is not given.
    std::string text(const std::string &name) const;
    // Throws Unfit when it is none of them and not empty.
    std::string word(const std::string &name, std::initializer_list<const char *> allowed) const;
    size_t number(const std::string &name, size_t otherwise, size_t least, size_t most) const;
    // unit, plan, verdict, failing, since and until, as far as they are known.
    records::Filter filter() const;

  private:
    const std::multimap<std::string, std::string> &given_;
};

} // namespace station::page
