// The page's own files, which are built into the program; nothing else has a path.
#pragma once

#include "station/page/message.h"

#include <cstddef>
#include <string>

namespace station::page
{

struct File {
    const char *path; // "/line.js"
    const char *type;
    const char *digest;
    const unsigned char *bytes;
    size_t size;
};

// Made by the build; ends with one without a path.
extern const File BUILT_IN[];

// 404 for what is none of them.
Reply file_reply(const Request &request);

} // namespace station::page
