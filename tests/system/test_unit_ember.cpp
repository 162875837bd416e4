// The unit's Ember+ tree as a controller sees it over the network.
#include "running_unit.h"

#include "zel_ember.h"

#include <gtest/gtest.h>

#include <map>

using namespace zel;
using namespace zel::test;

namespace {

class controller {
public:
    controller()
    {
        const std::string address = own_address() + ":9000";
        zel_ember_session_config_t config{};
        config.provider_addr = address.c_str();
        config.user_data = this;
        session_ = zel_ember_session_init(&config);
    }
    ~controller() { zel_ember_session_term(session_); }
    controller(const controller &) = delete;
    controller &operator=(const controller &) = delete;

    void follow(const std::string &path) { (void)zel_ember_get_param(session_, path.c_str(), this, take); }
    // Serves the session until the parameter has that value.
    bool await(const std::string &path, const std::string &value)
    {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (values_[path] != value && std::chrono::steady_clock::now() < deadline) serve();
        return values_[path] == value;
    }
    const std::string &value(const std::string &path) { return values_[path]; }

private:
    static void take(void *self, const char *path, uint32_t kind, const void *value)
    {
        (void)kind;
        auto &values = static_cast<controller *>(self)->values_;
        const std::string key = path[0] == '/' ? path : std::string("/") + path;
        const bool text = key.find("/identity/") != std::string::npos;
        if (value == nullptr) values[key] = "none";
        else values[key] = text ? static_cast<const char *>(value) : std::to_string(*static_cast<const int64_t *>(value));
    }
    void serve()
    {
        fd_set readable;
        FD_ZERO(&readable);
        int highest = -1;
        zel_ember_set_fds(session_, &readable, &highest);
        timeval limit{1, 0};
        if (select(highest + 1, &readable, nullptr, nullptr, &limit) < 0) FD_ZERO(&readable);
        zel_ember_process_fds(session_, &readable);
    }

    zel_ember_session_t *session_ = nullptr;
    std::map<std::string, std::string> values_;
};

}  // namespace

TEST(unit_ember, a_controller_sees_the_unit_s_identity_and_follows_its_ports)
{
    const unit_root root(studio_settings());
    write_file(root.config(), studio_config());
    unit_process unit(root);
    ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
    controller desk;
    for (const char *const path : {"/unit/identity/product", "/unit/identity/serial", "/unit/identity/name",
                                   "/unit/gpio/physical/gpio 1/status", "/unit/gpio/physical/relay 1/status"}) {
        desk.follow(path);
    }
    EXPECT_TRUE(desk.await("/unit/identity/product", "ZEL-SOFT")) << desk.value("/unit/identity/product");
    EXPECT_TRUE(desk.await("/unit/identity/name", "Studio 1"));
    EXPECT_TRUE(desk.await("/unit/identity/serial", read_file(root.path() + "/etc/zel/serial").substr(0, 12)));
    EXPECT_TRUE(desk.await("/unit/gpio/physical/gpio 1/status", "0"));
    EXPECT_EQ(zelctl(root, {"press", "1"}).status, 0);
    EXPECT_TRUE(desk.await("/unit/gpio/physical/gpio 1/status", "1"));
    EXPECT_TRUE(desk.await("/unit/gpio/physical/relay 1/status", "1"));
    EXPECT_EQ(zelctl(root, {"release", "1"}).status, 0);
    EXPECT_TRUE(desk.await("/unit/gpio/physical/relay 1/status", "0"));
    EXPECT_EQ(unit.stop(), 0) << unit.process().err.rest();
}
