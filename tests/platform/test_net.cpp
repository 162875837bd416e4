#include "captured_stderr.h"
#include "temp_folder.h"
#include "zel_net.h"

#include <net/if.h>
#include <unistd.h>

#include <memory>

namespace {

struct config_release {
    void operator()(zel_net_config_t *config) const { zel_net_config_free(config); }
};
using config_handle = std::unique_ptr<zel_net_config_t, config_release>;

class net : public testing::Test {
protected:
    void SetUp() override { setenv("ZEL_ROOT", folder_.path().c_str(), 1); }

    config_handle load(const std::string &text)
    {
        write_text(folder_.file("etc/zel/unit.json"), text);
        return config_handle(zel_net_config_load());
    }

    temp_folder folder_;
};

}  // namespace

TEST_F(net, the_units_file_gives_name_interface_and_udp_switch)
{
    const auto config = load(R"({"#": "studio", "friendly_name": "Studio 1 \u00fc", "interface": "eth7",
                                 "udp_commands": {"enabled": true, "port": 5010}})");
    ASSERT_NE(config, nullptr);
    EXPECT_STREQ(zel_net_config_get_fname(config.get()), "Studio 1 \xc3\xbc");
    EXPECT_STREQ(zel_net_config_get_interface(config.get()), "eth7");
    EXPECT_EQ(zel_net_config_get_udp_commands_enabled(config.get()), 1);
}

TEST_F(net, a_unit_without_a_file_has_the_machines_name_the_loopback_interface_and_no_udp_commands)
{
    const config_handle config(zel_net_config_load());
    ASSERT_NE(config, nullptr);
    char name[256] = "";
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_STREQ(zel_net_config_get_fname(config.get()), name);
    EXPECT_STREQ(zel_net_config_get_interface(config.get()), "lo");
    EXPECT_EQ(zel_net_config_get_udp_commands_enabled(config.get()), 0);
}

TEST_F(net, an_unreadable_file_gives_no_handle_and_a_line_that_says_where)
{
    captured_stderr log;
    EXPECT_EQ(load("{\n\"friendly_name\": }"), nullptr);
    const std::string line = level_and_text(log.next());
    EXPECT_TRUE(line.starts_with("error: ")) << line;
    EXPECT_NE(line.find("etc/zel/unit.json: line 2 column"), std::string::npos) << line;
}

TEST_F(net, a_value_of_the_wrong_type_is_named_and_its_default_taken)
{
    captured_stderr log;
    const auto config = load(R"({"friendly_name": "A", "interface": 3, "udp_commands": {"enabled": 1}})");
    ASSERT_NE(config, nullptr);
    EXPECT_STREQ(zel_net_config_get_fname(config.get()), "A");
    EXPECT_STREQ(zel_net_config_get_interface(config.get()), "lo");
    EXPECT_EQ(zel_net_config_get_udp_commands_enabled(config.get()), 0);
    EXPECT_NE(log.next().find("\"udp_commands/enabled\""), std::string::npos);
    EXPECT_NE(log.next().find("\"interface\""), std::string::npos);
}

TEST_F(net, the_interface_index_is_the_kernels)
{
    EXPECT_EQ(zel_net_config_ifindex(load(R"({"interface": "lo"})").get()), static_cast<int>(if_nametoindex("lo")));
    EXPECT_GT(zel_net_config_ifindex(load("{}").get()), 0);
    EXPECT_EQ(zel_net_config_ifindex(load(R"({"interface": "none such"})").get()), 0);
    EXPECT_EQ(zel_net_config_ifindex(load(R"({"interface": ""})").get()), 0);
}

TEST_F(net, a_null_handle_has_no_name_no_interface_and_no_udp_commands)
{
    EXPECT_STREQ(zel_net_config_get_fname(nullptr), "");
    EXPECT_STREQ(zel_net_config_get_interface(nullptr), "");
    EXPECT_EQ(zel_net_config_ifindex(nullptr), 0);
    EXPECT_EQ(zel_net_config_get_udp_commands_enabled(nullptr), 0);
    zel_net_config_free(nullptr);
}
