// The list of remote virtual outputs: its links, its log and its memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "grid_test.h"
#include "library_allocations.h"
#include "vgpo_list/vgpo_list.h"

namespace {

static_assert(sizeof(vgpo_list_t) == 3 * sizeof(void *) && sizeof(vgpo_node_t) == 2 * sizeof(void *));

/// A record with all four strings.
vGPO_t *make(const std::string &name)
{
    auto *vgpo = static_cast<vGPO_t *>(std::calloc(1, sizeof(vGPO_t)));
    vgpo->name = strdup(name.c_str());
    vgpo->addr_port = strdup("10.0.0.2:9000");
    vgpo->type_path = strdup("/a/type");
    vgpo->status_path = strdup("/a/status");
    return vgpo;
}

class listed : public testing::Test {
protected:
    fake::unit u;   // takes the log
    vgpo_list_t list;

    listed() { vgpo_list_init(&list); }
    ~listed() override { vgpo_list_free(&list); }

    void add(std::initializer_list<const char *> names)
    {
        for (const char *const name : names) vgpo_list_add_last(&list, make(name));
    }

    /// "0a 1b", with the tail marked; "-" for a list whose words are all zero.
    std::string shown() const
    {
        std::string text;
        uint32_t nodes = 0;
        for (const vgpo_node_t *node = list.head; node != nullptr; node = node->next, ++nodes)
            text += (nodes > 0 ? " " : "") + std::to_string(node->vgpo->id) + node->vgpo->name + (node == list.tail ? "." : "");
        if (nodes != list.count) text += " but counted " + std::to_string(list.count);
        return nodes == 0 && list.tail == nullptr ? "-" : text;
    }
};

TEST_F(listed, nothing_is_three_words_of_zero)
{
    std::memset(static_cast<void *>(&list), 0xEE, sizeof list);
    vgpo_list_init(&list);
    EXPECT_EQ(shown(), "-");
    EXPECT_EQ(find_vgpo_by_name(&list, "a"), nullptr);
    vgpo_list_free(&list);
    EXPECT_EQ(shown(), "-");
}

struct removal {
    const char *name, *left;
};

class any_place : public listed, public testing::WithParamInterface<removal> {};

TEST_P(any_place, can_be_removed_from)
{
    add({"a", "b", "c"});
    remove_vgpo(&list, GetParam().name);
    EXPECT_EQ(shown(), GetParam().left);
    EXPECT_EQ(list.tail->next, nullptr);
    EXPECT_LINES(u.take(), std::string("log 2 remove_vgpo: Removing vgpo '") + GetParam().name + "'");
    add({"d"});
    EXPECT_EQ(shown().back(), '.') << "the list goes on at its tail";
    EXPECT_EQ(list.count, 3u);
}

INSTANTIATE_TEST_SUITE_P(of_three, any_place,
                         testing::Values(removal{"a", "1b 2c."}, removal{"b", "0a 2c."}, removal{"c", "0a 1b."}),
                         [](const auto &place) { return std::string(place.param.name); });

TEST_F(listed, the_only_record_leaves_three_words_of_zero)
{
    add({"a"});
    remove_vgpo(&list, "a");
    EXPECT_EQ(shown(), "-");
    add({"b"});
    EXPECT_EQ(shown(), "0b.");
}

TEST_F(listed, a_name_that_is_not_there_changes_and_says_nothing)
{
    remove_vgpo(&list, "a");
    add({"a", "b"});
    for (const char *const name : {"c", "", "A", "a ", "ab", "0a"}) {
        remove_vgpo(&list, name);
        EXPECT_EQ(find_vgpo_by_name(&list, name), nullptr) << name;
    }
    EXPECT_EQ(shown(), "0a 1b.");
    EXPECT_TRUE(u.take().empty());
}

TEST_F(listed, names_are_compared_byte_by_byte)
{
    add({"vGPO1@Studio", "vGPO1@Studio 2", "vgpo1@studio", "vGPO1@Stu\xC3\xA4", "vGPO1@Stu\xC3"});
    for (const vgpo_node_t *node = list.head; node != nullptr; node = node->next)
        EXPECT_EQ(find_vgpo_by_name(&list, node->vgpo->name), node->vgpo);
}

TEST_F(listed, freed_numbers_are_given_again_before_higher_ones)
{
    add({"a", "b", "c", "d", "e", "f"});
    for (const char *const name : {"e", "a", "c"}) remove_vgpo(&list, name);
    add({"x", "y", "z", "last"});
    EXPECT_EQ(shown(), "1b 3d 5f 0x 2y 4z 6last.");
}

TEST_F(listed, of_equal_names_the_later_one_stays_with_its_number)
{
    add({"a", "b", "a"});
    remove_vgpo(&list, "a");
    EXPECT_EQ(shown(), "1b 2a.");
    EXPECT_EQ(find_vgpo_by_name(&list, "a")->id, 2u);
}

TEST_F(listed, four_thousand_names_are_all_found)
{
    for (int i = 0; i < 4000; ++i) vgpo_list_add_last(&list, make("vGPO1@" + std::to_string(i)));
    for (uint32_t i = 0; i < 4000; ++i) {
        const vGPO_t *const found = find_vgpo_by_name(&list, ("vGPO1@" + std::to_string(i)).c_str());
        ASSERT_NE(found, nullptr) << i;
        EXPECT_EQ(found->id, i);
    }
    vgpo_list_free(&list);
    EXPECT_EQ(shown(), "-");
}

TEST_F(listed, strings_are_released_at_once_and_records_with_the_list)
{
    const size_t before = fake::allocations_held();
    add({"a", "b"});
    const size_t with_both = fake::allocations_held();
    remove_vgpo(&list, "a");
    EXPECT_EQ(fake::allocations_held(), with_both - 4);
    vgpo_list_free(&list);
    EXPECT_EQ(fake::allocations_held(), before);
    vgpo_list_free(&list);
    add({"c"});
    EXPECT_EQ(shown(), "0c.") << "a freed list can be used again";
}

TEST_F(listed, a_record_without_strings_is_released_too)
{
    const size_t before = fake::allocations_held();
    vgpo_list_add_last(&list, static_cast<vGPO_t *>(std::calloc(1, sizeof(vGPO_t))));
    EXPECT_EQ(list.count, 1u);
    vgpo_list_free(&list);
    EXPECT_EQ(fake::allocations_held(), before);
}

TEST_F(listed, a_record_whose_node_finds_no_memory_is_not_added)
{
    add({"a"});
    vGPO_t *const record = make("b");
    record->id = 4711;
    u.take();
    fake::fail_allocation(0);
    vgpo_list_add_last(&list, record);
    ASSERT_TRUE(fake::allocation_failed());
    EXPECT_EQ(shown(), "0a.");
    EXPECT_EQ(record->id, 4711u) << "and gets no number";
    EXPECT_TRUE(u.take().empty());
    vgpo_list_add_last(&list, record);
    EXPECT_EQ(shown(), "0a 1b.");
}

TEST_F(listed, a_new_record_is_zero_whether_it_was_used_before_or_not)
{
    add({"a"});
    find_vgpo_by_name(&list, "a")->type_retries = 3;
    remove_vgpo(&list, "a");
    for (const char *const name : {"again", "new"}) {
        vGPO_t *const record = zel::take_vgpo_record(&list);
        const vGPO_t zero{};
        EXPECT_EQ(std::memcmp(record, &zero, sizeof zero), 0) << name;
        vgpo_list_add_last(&list, record);
    }
    fake::fail_allocation(0);
    EXPECT_EQ(zel::take_vgpo_record(&list), nullptr);
    for (vgpo_node_t *node = list.head; node != nullptr; node = node->next) node->vgpo->name = strdup("named");
}

}  // namespace
