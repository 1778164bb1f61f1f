// The course that every check routine takes. `name` is the routine's, which all of it is logged under.
#pragma once

#include <stdint.h>

#include "hwdec/detect.h"

// A routine's already-passed bit, by the id of its first component.
constexpr uint32_t done_bit(uint8_t id) { return uint32_t{1} << (id + 1); }

// Probes unless the routine has passed before. Returns the probe's status.
template <typename Probe>
int32_t run_check(const char *name, uint32_t done, const char *item, Probe probe, const char *verb = "is")
{
    DEC_LOG_AS(name, "Enter!\n");
    if (hw_dec_done_flag & done) {
        DEC_LOG_AS(name, "%s %s ok, finish!\n", item, verb);
        return 0;
    }
    int32_t status = probe();
    DEC_LOG_AS(name, "Finish!\n");
    return status;
}

inline void log_match(const char *name, const char *expected, const char *line)
{
    DEC_LOG_AS(name, "want state include %s, get state is %s\n", expected, line);
}

// A routine with one component has found it.
inline void found(const char *name, uint8_t id, const char *item)
{
    set_hw_dev_check_flag(id);
    hw_dec_done_flag |= done_bit(id);
    DEC_LOG_AS(name, "%s is ok!\n", item);
}
