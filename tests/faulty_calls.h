// The system and library calls of the service's code, counted, and any one of them made to fail. The linker
// puts these versions in front of the real ones (see the --wrap options); what the C library calls inside
// itself is not touched.
#pragma once

#include <cstdint>

// The ways in which a handler's call can fail. A read and a write, at an offset or not, have two: the error,
// and none of the bytes.
enum faulty_call : int {
    FAIL_OPEN,
    FAIL_READ,
    FAIL_READ_NONE,
    FAIL_WRITE,
    FAIL_WRITE_NONE,
    FAIL_LOG_WRITE, // to standard output
    FAIL_FSYNC,
    FAIL_LSEEK,
    FAIL_IOCTL,
    FAIL_ACCESS,
    FAIL_OPENDIR,
    FAIL_READDIR,
    FAIL_KILL,
    FAIL_POPEN,
    FAIL_SYSTEM,
    FAIL_FOPEN,
    FAIL_FGETS,
    FAIL_FWRITE,
    FAIL_FPRINTF,
    FAIL_FPUTC,
    FAIL_FFLUSH,
    FAIL_FSEEK,
    FAIL_MALLOC,
    FAIL_PTHREAD_CREATE,
    FAIL_PROPERTY_GET,
    FAIL_PROPERTY_SET,
    FAIL_RESPONSE, // its allocation
    FAULTY_CALLS,
    NO_FAULT = FAULTY_CALLS,
};
extern const char *const FAULTY_CALL_NAMES[FAULTY_CALLS];

// What a handler has called between begin and end, and what it has not given back (end_calls closes it, so
// that the next run starts clean).
struct call_record {
    int counts[FAULTY_CALLS];
    int closed; // descriptors, streams and folders; closing never fails
    int failed;
    int descriptors_left;
    int commands_left; // streams of popen
    int streams_left;  // of fopen, and folders
    int blocks_left;   // of malloc
    int responses;     // allocated
};

// Until end_calls, the calls of this thread are counted and the `number`th (from 1) of `fault` fails, and so
// does every `stride`th behind it.
void begin_calls(faulty_call fault, int number, int stride);
const call_record &end_calls();

// Size of a response that the service has allocated, 0 of anything else.
unsigned int response_size(const void *response);
void free_responses();
