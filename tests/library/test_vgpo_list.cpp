// The list of remote virtual outputs.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "child_process.h"
#include "fake_platform.h"
#include "vgpo_list/vgpo_list.h"
#include "zel_gpio.h"

namespace {

const fake::unit unit;  // takes the log

struct remote_list {
    vgpo_list_t list;

    remote_list() { vgpo_list_init(&list); }
    ~remote_list() { vgpo_list_free(&list); }

    vGPO_t *add(const char *name)
    {
        auto *vgpo = static_cast<vGPO_t *>(std::calloc(1, sizeof(vGPO_t)));
        vgpo->name = name != nullptr ? strdup(name) : nullptr;
        vgpo->addr_port = strdup("127.0.0.1:9000");
        vgpo->type_path = strdup("/a/type");
        vgpo->status_path = strdup("/a/status");
        vgpo_list_add_last(&list, vgpo);
        return vgpo;
    }

    std::string names() const
    {
        std::string text;
        for (const vgpo_node_t *node = list.head; node != nullptr; node = node->next) {
            text += (text.empty() ? "" : " ") + std::to_string(node->vgpo->id) + (node->vgpo->name ? node->vgpo->name : "-");
            if (node->next == nullptr) { EXPECT_EQ(node, list.tail); }
        }
        return text;
    }
};

TEST(vgpo_list, gives_the_lowest_free_number)
{
    remote_list l;
    for (const char *name : {"a", "b", "c"}) l.add(name);
    EXPECT_EQ(l.names(), "0a 1b 2c");
    remove_vgpo(&l.list, "b");
    EXPECT_EQ(l.add("d")->id, 1u);
    EXPECT_EQ(l.add("e")->id, 3u);
    EXPECT_EQ(l.names(), "0a 2c 1d 3e");
    EXPECT_EQ(l.list.count, 4u);
}

TEST(vgpo_list, keeps_head_and_tail_right_when_any_node_goes)
{
    remote_list l;
    for (const char *name : {"a", "b", "c"}) l.add(name);
    remove_vgpo(&l.list, "c");
    EXPECT_EQ(l.names(), "0a 1b");
    EXPECT_EQ(l.list.tail->next, nullptr);
    remove_vgpo(&l.list, "a");
    EXPECT_EQ(l.names(), "1b");
    remove_vgpo(&l.list, "b");
    EXPECT_EQ(l.list.head, nullptr);
    EXPECT_EQ(l.list.tail, nullptr);
    EXPECT_EQ(l.list.count, 0u);
}

TEST(vgpo_list, finds_and_removes_the_first_of_equal_names_and_no_other)
{
    remote_list l;
    vGPO_t *const first = l.add("a"), *const second = l.add("a");
    EXPECT_EQ(find_vgpo_by_name(&l.list, "a"), first);
    remove_vgpo(&l.list, "a");
    EXPECT_EQ(find_vgpo_by_name(&l.list, "a"), second);
    remove_vgpo(&l.list, "nobody");
    EXPECT_EQ(l.list.count, 1u);
}

TEST(vgpo_list, passes_over_records_without_a_name)
{
    remote_list l;
    l.add(nullptr);
    vGPO_t *const named = l.add("a");
    EXPECT_EQ(find_vgpo_by_name(&l.list, "a"), named);
    EXPECT_EQ(find_vgpo_by_name(&l.list, ""), nullptr);
    remove_vgpo(&l.list, "a");
    EXPECT_EQ(l.names(), "0-");
}

TEST(vgpo_list, keeps_a_removed_record_emptied_until_it_is_used_again)
{
    remote_list l, other;
    vGPO_t *const record = l.add("a");
    remove_vgpo(&l.list, "a");
    EXPECT_EQ(record->name, nullptr);
    EXPECT_EQ(record->addr_port, nullptr);
    EXPECT_EQ(record->type_path, nullptr);
    EXPECT_EQ(record->status_path, nullptr);
    vGPO_t *const fresh = zel::take_vgpo_record(&other.list);
    EXPECT_NE(fresh, record) << "a record belongs to its list";
    std::free(fresh);
    EXPECT_EQ(zel::take_vgpo_record(&l.list), record);
    vgpo_list_add_last(&l.list, record);
}

TEST(vgpo_list, releases_removed_records_of_its_own_only)
{
    remote_list l;
    {
        remote_list other;
        other.add("x"), other.add("y");
        remove_vgpo(&other.list, "x");
        l.add("a");
        remove_vgpo(&l.list, "a");
    }
    vGPO_t *const record = zel::take_vgpo_record(&l.list);
    vgpo_list_add_last(&l.list, record);
    EXPECT_EQ(record->id, 0u);
}

TEST(vgpo_list, takes_thousands_of_names)
{
    remote_list l;
    for (int i = 0; i < 4000; ++i) l.add(("unit " + std::to_string(i)).c_str());
    EXPECT_EQ(l.list.tail->vgpo->id, 3999u);
    for (int i = 0; i < 4000; i += 2) remove_vgpo(&l.list, ("unit " + std::to_string(i)).c_str());
    EXPECT_EQ(l.list.count, 2000u);
    EXPECT_EQ(l.add("again")->id, 0u);
}

struct null_call {
    const char *condition;
    void (*call)();
};
const null_call null_calls[] = {
    {"new_list != NULL", [] { vgpo_list_init(nullptr); }},
    {"list != NULL", [] { vGPO_t vgpo{}; vgpo_list_add_last(nullptr, &vgpo); }},
    {"vgpo != NULL", [] { vgpo_list_t list{}; vgpo_list_add_last(&list, nullptr); }},
    {"list != NULL", [] { vgpo_list_free(nullptr); }},
    {"list != NULL", [] { find_vgpo_by_name(nullptr, "a"); }},
    {"name != NULL", [] { vgpo_list_t list{}; find_vgpo_by_name(&list, nullptr); }},
    {"list != NULL", [] { remove_vgpo(nullptr, "a"); }},
    {"name != NULL", [] { vgpo_list_t list{}; remove_vgpo(&list, nullptr); }},
};

TEST(vgpo_list, stops_the_process_on_null_arguments)
{
    for (const null_call &bad : null_calls) {
        const fake::child_result child = fake::in_child(bad.call);
        EXPECT_EQ(child.signal, SIGABRT) << bad.condition;
        EXPECT_NE(child.output.find(std::string("`") + bad.condition + "'"), std::string::npos) << child.output;
    }
}

}  // namespace
