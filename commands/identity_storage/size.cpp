// How much the phone holds: memory, flash, solid-state disk.
#include <stdlib.h>
#include <string.h>

#include <utility>

#include "core/command.h"
#include "core/shell.h"

// Nominal sizes in GiB. The kernel reports a little less than the nominal size, so a count belongs to a size
// from 1 MiB above the next smaller one to just below 1 MiB above itself. The first is a lower bound alone.
static constexpr int MEMORY_SIZES[] = {1, 2, 3, 4, 6, 8, 10, 12, 14, 16};
static constexpr int STORAGE_SIZES[] = {8, 16, 32, 64, 128, 256, 512, 1024};

static constexpr int SIZE_UNKNOWN = -1;
static constexpr int SIZE_BASE = 255; // of the two digits of a size; 255 on purpose

static constexpr char MEMORY_TOTAL[] = "cat proc/meminfo | grep MemTotal:|sed -e 's/.*:[^0-9]//'";

static constexpr char PARTITIONS[] = "cat proc/partitions";
static constexpr int PARTITIONS_ATTEMPTS = 4;
static constexpr const char *MAIN_BLOCKS[] = {"sda", "sdb", "sdc", "sdd", "sde", "sdf"};
static constexpr char LAST_MAIN_BLOCK[] = "sdf";
static constexpr char FLASH_TOOL[] = "ghr";
static constexpr char FLASH_TOOL_KEY[] = "memTotal: ";

static constexpr char SSD_SIZE[] = "cat /proc/partitions | grep nvme0n1 | tr -s ' ' | cut -f4 -d ' '";

static constexpr int64_t size_bound(int gib) { return (gib * INT64_C(1024) + 1) * 1024; }
static_assert(size_bound(1) == 0x100400 && size_bound(1024) == 0x40000400, "in KiB");

// The nominal size of a count of KiB, or 0 when it lies below or above all of them.
template <size_t COUNT> static int nominal_size(const int (&sizes)[COUNT], int64_t kib)
{
    for (size_t i = 1; i < COUNT; i++)
        if (size_bound(sizes[i - 1]) <= kib && kib < size_bound(sizes[i]))
            return sizes[i];
    return 0;
}

// A size as two digits, the low one first. A digit 0 ends the counted length.
static void *answer_size(uint8_t *response, int gib)
{
    char *data = response_data(response);
    data[0] = static_cast<char>(gib % SIZE_BASE);
    data[1] = static_cast<char>(gib / SIZE_BASE);
    return answer_length(response, strlen(data));
}

// The memory's nominal size in GiB, 0 when it has none, or SIZE_UNKNOWN.
static int diag_calculate_ddr_total_size()
{
    command_stream memory = run_line(MEMORY_TOTAL);
    if (!memory) {
        LOG("open:%s fail!\n", MEMORY_TOTAL);
        return SIZE_UNKNOWN;
    }
    char line[LINE_SIZE];
    read_line(memory.get(), line); // without a line it is empty, and the size 0
    LOG("get temp_buf:%s\n", line);
    int kib = atoi(line);
    LOG("get ddr size:%ld\n", static_cast<long>(kib / 1024));
    return nominal_size(MEMORY_SIZES, kib);
}

void *diag_cmd_check_ddr_size(const void *, uint8_t *response)
{
    int gib = diag_calculate_ddr_total_size();
    if (gib == SIZE_UNKNOWN)
        return FAIL(response, "Check ufs size failed\n");
    LOG("Check ufs size:%d\n", gib);
    return answer_size(response, gib);
}

// Whether it is a whole unit of the flash, and not a partition of one. The last unit ends the scan.
static bool diag_vulable_check_partition(const char *name, bool *ends)
{
    LOG("current partition block is %s\n", name);
    for (const char *block : MAIN_BLOCKS) {
        if (strcmp(name, block) != 0)
            continue;
        if (strcmp(name, LAST_MAIN_BLOCK) == 0) {
            LOG("Reach the end partition\n");
            *ends = true;
        }
        LOG("this is main partition block\n");
        return true;
    }
    return false;
}

// A line of the partition list: major, minor, count of KiB and name between runs of blanks. False when it has
// no name.
static bool split_partition(char *line, int *kib, const char **name)
{
    int column = 0;
    while (char *piece = strsep(&line, " ")) {
        if (*piece == '\0')
            continue;
        piece[length_without_line_feed(piece)] = '\0';
        if (column == 2)
            *kib = atoi(piece);
        if (column == 3) {
            *name = piece;
            return true;
        }
        column++;
    }
    return false;
}

// The nominal size in GiB of the flash's units together, or SIZE_UNKNOWN without the last of them. A sum
// outside the table keeps the size that it had before, which is 0 at first.
static int diag_calculate_flash_total_size()
{
    command_stream partitions = run_line(PARTITIONS);
    if (!partitions) {
        LOG("flash size calculate failed\n");
        return SIZE_UNKNOWN;
    }
    int64_t total = 0;
    int gib = 0;
    bool ends = false;
    for (int attempt = 0; attempt < PARTITIONS_ATTEMPTS; attempt++) { // a read may come back short
        char line[LINE_SIZE];
        while (read_line(partitions.get(), line)) {
            int kib = 0;
            const char *name = nullptr;
            if (!split_partition(line, &kib, &name) || !diag_vulable_check_partition(name, &ends))
                continue;
            LOG("main partition, need append it's size\n");
            total += kib;
            LOG("current block name is:%s, size is %ld Byte\n", name, static_cast<long>(kib));
            LOG("ufs_size_tmp=%ld, total_flash_blk=%ld\n", static_cast<long>(total),
                static_cast<long>(total / 1024));
            if (int size = nominal_size(STORAGE_SIZES, total)) {
                gib = size;
                LOG("flash_size:%dGiB\n", gib);
            }
            if (ends) {
                LOG("parsed end main block, total_flash_size=%d\n", gib);
                return gib;
            }
        }
        LOG("fgets response stream failed, fgets_retry_count=%d\n", attempt);
    }
    LOG("flash size calculate failed\n");
    return SIZE_UNKNOWN;
}

// The size that the phone's own tool tells, or 0.
static int diag_get_main_flash_size_by_ghr()
{
    command_stream tool = run_command(FLASH_TOOL);
    if (!tool) {
        LOG("execute cmd %s failed\n", FLASH_TOOL);
        return 0;
    }
    char line[LINE_SIZE];
    int gib = 0;
    while (read_line(tool.get(), line)) {
        if (const char *found = strstr(line, FLASH_TOOL_KEY)) {
            LOG("flash size info: %s\n", line);
            gib = atoi(found + strlen(FLASH_TOOL_KEY));
            LOG("flash_size=%d\n", gib);
            break;
        }
    }
    close_unawaited(std::move(tool)); // the tool may have more to say, and the station must not wait for it
    return gib;
}

void *diag_cmd_check_flash_size(const void *, uint8_t *response)
{
    int gib = diag_calculate_flash_total_size();
    if (gib == SIZE_UNKNOWN) {
        gib = diag_get_main_flash_size_by_ghr();
        if (gib < 1)
            return FAIL(response, "Check ufs size failed\n");
    }
    LOG("Check ufs size:%d\n", gib);
    return answer_size(response, gib);
}

// The disk's nominal size in GiB, or 0 when there is no disk or its size is none of them.
static int diag_get_ssd_total_size()
{
    command_stream partitions = run_line(SSD_SIZE);
    if (!partitions)
        return 0;
    char line[LINE_SIZE]; // of the whole disk; its partitions follow
    if (!read_line(partitions.get(), line)) {
        LOG("fgets ssd size failed!\n");
        return 0;
    }
    int kib = atoi(line);
    LOG("This is ssd partition, partition size is %d byte\n", kib);
    LOG("total_ssd_sizeKb=%ld\n", static_cast<long>(kib / 1024));
    int gib = nominal_size(STORAGE_SIZES, kib);
    if (gib > 0)
        LOG("ssd_size:%dGiB\n", gib);
    return gib;
}

void *diag_cmd_check_ssd_size(const void *, uint8_t *response)
{
    int gib = diag_get_ssd_total_size();
    if (gib == 0)
        return FAIL(response, "Check ssd size failed\n");
    LOG(" Check ssd size success, size(%dG)\n", gib);
    return answer_size(response, gib);
}
