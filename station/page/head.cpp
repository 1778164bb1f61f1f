#include "station/page/head.h"

#include "station/text/text.h"

#include <algorithm>
#include <charconv>

namespace station::page
{

static Extent refused(int status, const char *why)
{
    Extent extent;
    extent.state = Extent::State::refused;
    extent.status = status;
    extent.why = why;
    return extent;
}

static std::string_view trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

Extent extent_of(std::string_view bytes)
{
    const size_t end = bytes.substr(0, HEAD_MAX).find("\r\n\r\n");
    const std::string_view head = bytes.substr(0, std::min(end, bytes.size()));
    if (head.find('\0') != std::string_view::npos)
        return refused(400, "a request has no zero bytes");
    size_t lines = 0;
    bool has_length = false;
    Extent extent;
    for (size_t at = 0; at < head.size(); lines++) {
        const size_t line_end = std::min(head.find("\r\n", at), head.size());
        const std::string_view line = head.substr(at, line_end - at);
        if (line.size() > LINE_MAX_BYTES)
            return lines == 0 ? refused(414, "the address is too long")
                              : refused(431, "a header is too long");
        if (line.find_first_of("\r\n") != std::string_view::npos && end != std::string_view::npos)
            return refused(400, "a line of a request ends with both its bytes");
        if (lines > 0) {
            const size_t colon = line.find(':');
            const std::string name = lower_case(std::string(line.substr(0, colon)));
            const std::string_view value =
                colon == std::string_view::npos ? std::string_view() : trimmed(line.substr(colon + 1));
            if (name == "transfer-encoding")
                return refused(411, "a body has its length told before it");
            if (name == "content-length") {
                const char *const value_end = value.data() + value.size();
                const auto [behind, error] = std::from_chars(value.data(), value_end, extent.length);
                const bool is_number = error == std::errc() && behind == value_end && value.size() <= 9;
                if (has_length || (!is_number && end != std::string_view::npos))
                    return refused(400, "that is no length of a body");
                has_length = true;
            }
        }
        at = line_end + 2;
    }
    if (lines > LINES_MAX)
        return refused(431, "too many headers");
    if (end == std::string_view::npos)
        return bytes.size() < HEAD_MAX ? Extent() : refused(431, "the headers are too long");
    if (extent.length > BODY_MAX)
        return refused(413, "the body is too long");
    extent.head = end + 4;
    extent.length += extent.head;
    if (bytes.size() >= extent.length)
        extent.state = Extent::State::whole;
    return extent;
}

} // namespace station::page
