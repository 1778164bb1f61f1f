// Handling of secrets, for the key commands alone: what they keep in memory of a key is cleared. Their log
// lines show keys, as the line needs them.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Zeroes memory that nobody reads again, which the compiler may not leave out.
void clear_secret(void *data, size_t length);

// A zeroed buffer for a secret that is cleared at the end of its scope, on every path.
template <size_t SIZE> struct secret {
    char bytes[SIZE] = {};
    secret() = default;
    ~secret() { clear_secret(bytes, SIZE); }
    secret(const secret &) = delete;
    secret &operator=(const secret &) = delete;
};

constexpr size_t SECRET_FILE_LIMIT = 768; // the most that a key file takes

// Writes a key of the request to `path`, exactly its `length` bytes, with diag_cmd_write_file, which refuses
// more than `limit` (at most SECRET_FILE_LIMIT). False when that failed.
[[nodiscard]] bool write_secret(const char *path, const uint8_t *key, uint16_t length, uint16_t limit);

constexpr size_t IDENTITY_LIMIT = 32; // characters of an identity that are answered

// If `marker` stands in the line, answers what follows it up to IDENTITY_LIMIT characters and returns true. A
// closing line feed is not counted, but stays in the data.
bool answer_identity(uint8_t *response, const char *line, const char *marker);
