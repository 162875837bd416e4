// Every allocation that a client and a server make fails once: neither may crash, leak or lose what it accepted.
#include <zel_debug.h>
#include <zel_ipc.h>

#include "temp_folder.h"

#include <poll.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

// The allocation functions of this program, in front of the C library's own.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

void __libc_free(void *memory);

static long allocations_left = -1;   // that go well before those that fail; -1: all do
static long failing = 0;             // how many fail then
static long failed = 0;
static long living = 0;              // blocks that were not freed yet

static bool is_to_fail()
{
    if (allocations_left < 0 || failed >= failing) return false;
    if (allocations_left > 0) {
        --allocations_left;
        return false;
    }
    ++failed;
    errno = ENOMEM;
    return true;
}

static void *counted(void *memory)
{
    living += memory != nullptr ? 1 : 0;
    return memory;
}

[[gnu::visibility("default")]] void *malloc(size_t size)
{
    return is_to_fail() ? nullptr : counted(__libc_malloc(size));
}

[[gnu::visibility("default")]] void *calloc(size_t count, size_t size)
{
    return is_to_fail() ? nullptr : counted(__libc_calloc(count, size));
}

[[gnu::visibility("default")]] void *realloc(void *old, size_t size)
{
    if (is_to_fail()) return nullptr;
    return old == nullptr ? counted(__libc_malloc(size)) : __libc_realloc(old, size);
}

[[gnu::visibility("default")]] void *aligned_alloc(size_t alignment, size_t size)
{
    return is_to_fail() ? nullptr : counted(__libc_memalign(alignment, size));
}

[[gnu::visibility("default")]] void free(void *memory)
{
    living -= memory != nullptr ? 1 : 0;
    __libc_free(memory);
}

void log_message(int, const char *, ...) {}
}

namespace {

constexpr int request_type = 2, answer_type = 3;
constexpr uint32_t request_size = 200, answer_size = 60000;
constexpr int early_requests = 20, answers_per_flood = 12;

// What both ends saw, without any memory of its own.
struct record {
    int accepted_requests, accepted_answers;   // by the send functions
    int requests, answers;                     // received
    int links_made, links_lost, connected, disconnected;
    bool out_of_order;
    uint32_t client_id;
    zel_ipc_server_t *server;
};
record seen;
char block[answer_size];

void note_number(int &count, const void *payload)
{
    int number;
    memcpy(&number, payload, sizeof number);
    seen.out_of_order = seen.out_of_order || number != count;
    ++count;
}

void client_event(zel_ipc_client_t *, uint8_t type, const void *payload, uint32_t)
{
    if (type == ZEL_IPC_LINK_MADE) ++seen.links_made;
    if (type == ZEL_IPC_LINK_LOST) ++seen.links_lost;
    if (type == answer_type) note_number(seen.answers, payload);
}

void client_connected(zel_ipc_server_t *, void *, const zel_ipc_peer_t *peer)
{
    ++seen.connected;
    seen.client_id = peer->id;
}

void client_message(zel_ipc_server_t *, void *, const zel_ipc_peer_t *, uint8_t, const void *payload, uint32_t)
{
    note_number(seen.requests, payload);
}

void client_disconnected(zel_ipc_server_t *, void *, const zel_ipc_peer_t *)
{
    ++seen.disconnected;
}

const char *numbered_block(int number)
{
    memcpy(block, &number, sizeof number);
    return block;
}

void run(zel_ipc_client_t *client, zel_ipc_server_t *server, bool (*done)())
{
    for (int turn = 0; turn < 2000 && !done(); ++turn) {
        pollfd both[2] = {{zel_ipc_client_fd(client), POLLIN, 0}, {zel_ipc_server_fd(server), POLLIN, 0}};
        if (poll(both, 2, 10000) <= 0) return;
        zel_ipc_client_process_fds(client, nullptr);
        zel_ipc_server_process_fds(server, nullptr);
    }
}

void exchange(zel_ipc_client_t *client, zel_ipc_server_t *server)
{
    for (int i = 0; i < early_requests; ++i) {
        const char *const request = numbered_block(seen.accepted_requests);
        seen.accepted_requests += zel_ipc_client_send(client, request_type, request, request_size) == 0 ? 1 : 0;
    }
    run(client, server, [] { return seen.links_made > seen.links_lost && seen.requests >= seen.accepted_requests; });
    for (int i = 0; i < answers_per_flood; ++i) {   // more than the socket takes: the rest is queued
        const char *const answer = numbered_block(seen.accepted_answers);
        seen.accepted_answers += zel_ipc_server_send(server, seen.client_id, answer_type, answer, answer_size) == 0 ? 1 : 0;
    }
    run(client, server, [] {
        return seen.links_made > seen.links_lost && (seen.disconnected > 0 || seen.answers >= seen.accepted_answers);
    });
}

bool scenario()
{
    seen = {};
    zel_ipc_server_config_t config{};
    config.connected = client_connected;
    config.message = client_message;
    config.disconnected = client_disconnected;
    zel_ipc_server_t *const server = zel_ipc_server_init("server", &config);
    zel_ipc_client_t *const client = zel_ipc_client_init("server", "client", client_event, nullptr);
    const bool both = server != nullptr && client != nullptr;
    if (both) exchange(client, server);
    zel_ipc_client_term(client);
    zel_ipc_server_term(server);
    return both;
}

size_t open_descriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto &one : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

void expect_nothing_lost()
{
    EXPECT_FALSE(seen.out_of_order);
    EXPECT_GT(seen.links_made, seen.links_lost);
    EXPECT_EQ(seen.requests, seen.accepted_requests);
    if (seen.disconnected == 0) {
        EXPECT_EQ(seen.answers, seen.accepted_answers);
    }
}

class ipc_memory : public testing::Test {
protected:
    ipc_memory() { setenv("ZEL_ROOT", folder_.path().c_str(), 1); }
    ~ipc_memory() override { unsetenv("ZEL_ROOT"); }

    // Runs the scenario with ever later failures until none comes about; how many scenarios met one.
    long fail_each(long how_many)
    {
        (void)scenario();   // what the C++ library keeps for itself is allocated before descriptors are counted
        const size_t descriptors = open_descriptors();
        for (long nth = 0; nth < 10000; ++nth) {
            allocations_left = nth;
            failing = how_many;
            failed = 0;
            const long living_before = living;
            const bool both = scenario();
            allocations_left = -1;
            EXPECT_EQ(living, living_before) << "allocation " << nth;
            EXPECT_EQ(open_descriptors(), descriptors) << "allocation " << nth;
            EXPECT_TRUE(std::filesystem::is_empty(folder_.path() + "/run/zel")) << "allocation " << nth;
            if (both) expect_nothing_lost();
            if (HasFailure() || failed == 0) return both ? nth : -1;
        }
        return -1;
    }

private:
    temp_folder folder_;
};

}  // namespace

TEST_F(ipc_memory, every_single_failed_allocation_is_survived)
{
    EXPECT_GT(fail_each(1), early_requests);
}

TEST_F(ipc_memory, a_while_without_any_memory_is_survived)
{
    EXPECT_GT(fail_each(5), early_requests);
}
