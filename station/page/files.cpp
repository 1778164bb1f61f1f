#include "station/page/files.h"

namespace station::page
{

static const File *find(const std::string &path)
{
    for (const File *file = BUILT_IN; file->path; file++)
        if (path == file->path)
            return file;
    return nullptr;
}

Reply file_reply(const Request &request)
{
    const File *file = find(request.path == "/" ? "/index.html" : request.path);
    if (!file)
        return error_reply(404, "there is nothing of that name");
    if (request.method != "GET")
        return error_reply(405, "that is only to be read");
    Reply reply;
    const std::string tag = std::string("\"") + file->digest + "\"";
    reply.headers.emplace_back("ETag", tag);
    reply.headers.emplace_back("Cache-Control",
                               "no-cache"); // asked for anew each time, sent when it has changed
    reply.type = file->type;
    if (request.if_none_match.find(tag) != std::string::npos)
        reply.status = 304;
    else
        reply.body.assign(reinterpret_cast<const char *>(file->bytes), file->size);
    return reply;
}

} // namespace station::page
