// One request and its answer, as quickly as a station can ask.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

[[noreturn]] void die(const char *what);

// The frame of a request; a text gets its length in front and a zero byte behind.
Bytes make_request(uint16_t code, const std::string &text = "");

// A connection to the socket, or -1.
int connect_to(const std::string &path);

void write_all(int fd, const Bytes &bytes);

// Sends the frame and reads up to the flag that ends its answer.
void ask(int fd, const Bytes &request, Bytes &answer);
