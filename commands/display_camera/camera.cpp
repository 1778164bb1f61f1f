// The cameras: the pre-ISP processor's power and the sensors' fuse ids.
#include <cutils.h>
#include <fcntl.h>
#include <string.h>
#include <sys/ioctl.h>

#include <iterator>

#include "core/command.h"
#include "core/files.h"

static constexpr char PREISP_DEVICE[] = "/dev/rk_preisp";
static constexpr char POWER_UP[] = "pwrup";
static constexpr char POWER_DOWN[] = "pwrdown";
static constexpr unsigned int QUERY_POWER_STATE = _IOR('p', 19, int32_t);
static_assert(QUERY_POWER_STATE == 0x80047013, "the driver's number");
static constexpr int32_t POWERED_UP = 0;

// By camera number.
static constexpr const char *FUSE_ID_PROPERTIES[] = {
    "vendor.camera.sensor.f.fuseID",          "vendor.camera.sensor.w.fuseID",
    "persist.camera.sensor.rearTele.fuseID",  "vendor.camera.sensor.u.fuseID",
    "persist.camera.sensor.rearDepth.fuseID", "vendor.camera.sensor.m2x.fuseID",
};
static constexpr int8_t CAMERAS = std::size(FUSE_ID_PROPERTIES);

void *diag_cmd_control_camera_dsp_power(const void *request, uint8_t *response)
{
    uint8_t action = packet_selector(request);
    const char *word = action != 0 ? POWER_UP : POWER_DOWN;
    auto length = static_cast<int32_t>(strlen(word));
    bool known = action <= 1;
    if (!known)
        LOG("Receiving cmd is abnormal cmd.\n");
    if (!known || !diag_cmd_write_file(PREISP_DEVICE, length, length, word))
        return FAIL(response, "Set %s status:[%s] fail.\n", PREISP_DEVICE, word);
    return DONE(response, "Set %s status:[%s] succ.\n", PREISP_DEVICE, word);
}

static int preisp_power_up_state_query(int32_t *state)
{
    descriptor device(open(PREISP_DEVICE, O_RDWR | O_CLOEXEC));
    if (!device) {
        LOG("Open %s failed\n", PREISP_DEVICE);
        return -1;
    }
    if (ioctl(device.fd, QUERY_POWER_STATE, state) < 0) {
        LOG("Ioctl _IOR('p', 19, int32_t) fail.\n");
        return -1;
    }
    LOG("Ioctl _IOR('p', 19, int32_t) succ.\n");
    return 0;
}

void *diag_cmd_query_camera_dsp_state(const void *request, uint8_t *response)
{
    if (packet_selector(request) != 0)
        return FAIL(response, "Receiving cmd is abnormal cmd.\n");

    int32_t state = -1;
    int result = preisp_power_up_state_query(&state);
    LOG("Query state ret:%d,state:%d.\n", result, state);
    if (result != 0 || state != POWERED_UP)
        return FAIL(response, "Camera dsp state is pwrdown or poweron_fail.\n");
    return DONE(response, "Camera dsp power state:[%s].\n", POWER_UP);
}

void *diag_cmd_get_camera_id(const void *request, uint8_t *response)
{
    auto camera = static_cast<int8_t>(packet_selector(request));
    if (camera < 0 || camera >= CAMERAS)
        return FAIL(response, "unkown command, please check!\n");
    char id[PROPERTY_SIZE] = {};
    if (property_get(FUSE_ID_PROPERTIES[camera], id, nullptr) < 1)
        return FAIL(response, "camera %d property_get error\n", camera);
    LOG("camera %d id is : %s.\n", camera, id);
    return answer_text(response, id);
}
