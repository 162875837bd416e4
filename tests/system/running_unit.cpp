#include "running_unit.h"

#include "common/local_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zel::test {
namespace {

// Says READY=1 once the unit serves; then the unit needs not be asked again and again.
unique_fd notify_socket(const std::string &path)
{
    unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    local_socket_address address;
    (void)unlink(path.c_str());
    if (!fd || !make_local_socket_address(path, address) || bind(fd.get(), address.get(), address.length) != 0) {
        throw std::runtime_error("no notification socket");
    }
    return fd;
}

bool await_ready(int notify_fd, pid_t pid)
{
    const unique_fd ended(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    pollfd waited[] = {{notify_fd, POLLIN, 0}, {ended.get(), POLLIN, 0}};
    const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(patience).count();
    return poll(waited, 2, static_cast<int>(limit)) > 0 && (waited[0].revents & POLLIN) != 0;
}

}  // namespace

temp_folder::temp_folder()
{
    std::string pattern = std::filesystem::temp_directory_path().string() + "/zel-system-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
    path_ = pattern;
}

temp_folder::~temp_folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void write_file(const std::string &path, std::string_view text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string own_address()
{
    const auto pid = static_cast<unsigned>(getpid());
    return "127." + std::to_string(1 + (pid >> 16 & 63)) + "." + std::to_string(pid >> 8 & 255) + "." +
           std::to_string(pid & 255);
}

unit_root::unit_root(const std::string &more, const std::string &subfolder) : path_(folder_.path() + subfolder)
{
    write_settings(more);
}

void unit_root::write_settings(const std::string &more) const
{
    write_file(settings(), "{\"servers\": {\"ember\": {\"address\": \"" + own_address() + "\"}, \"web\": {\"address\": \"" +
                               own_address() + "\"}}" + more + "}\n");
}

std::string studio_settings()
{
    const std::string text = read_file(ZEL_EXAMPLES "/studio/unit.json");
    const size_t begin = text.find("\"product_id\""), end = text.find("\"servers\"");
    std::string more = text.substr(begin, end - begin);
    more.erase(more.rfind(','));
    return ", " + more;
}

std::string studio_config()
{
    return read_file(ZEL_EXAMPLES "/studio/config.json");
}

bool start_service(child_process &child, const std::vector<std::string> &words, const std::string &notify_path,
                   environment variables)
{
    const unique_fd notify = notify_socket(notify_path);
    variables.emplace_back("NOTIFY_SOCKET", notify_path);
    variables.emplace_back("ZEL_ROOT", "/nowhere");  // --root must win
    child = child_process(words, variables);
    return await_ready(notify.get(), child.pid());
}

unit_process::unit_process(const unit_root &root, environment variables, const std::vector<std::string> &options,
                           const std::string &program)
{
    std::vector<std::string> words{program, "--root", root.path()};
    words.insert(words.end(), options.begin(), options.end());
    ready_ = start_service(child_, words, root.path() + "/notify", std::move(variables));
}

int unit_process::stop()
{
    child_.signal(SIGTERM);
    return child_.wait();
}

control_link::control_link(const unit_root &root)
{
    sending_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    local_socket_address address;
    connected_ = make_local_socket_address(root.socket(), address) &&
                 connect(sending_.get(), address.get(), address.length) == 0;
    reader_ = line_reader(unique_fd(dup(sending_.get())));
}

void control_link::send(std::string_view text) const
{
    (void)!::send(sending_.get(), text.data(), text.size(), MSG_NOSIGNAL);
}

std::string control_link::line()
{
    return reader_.next().value_or("");
}

json_handle control_link::next()
{
    const std::string text = line();
    return json_handle(json_loadb(text.data(), text.size(), 0, nullptr));
}

json_handle control_link::ask(const std::string &request)
{
    send(request + "\n");
    return next();
}

bool is_ok(const json_handle &answer)
{
    return json_is_true(json_object_get(answer.get(), "ok"));
}

std::string text_of(const json_handle &object, const char *key)
{
    const char *const text = json_string_value(json_object_get(object.get(), key));
    return text != nullptr ? text : "";
}

int number_of(const json_handle &object, const char *key)
{
    const json_t *const value = json_object_get(object.get(), key);
    return json_is_integer(value) ? static_cast<int>(json_integer_value(value)) : json_is_true(value) ? 1 : -1;
}

run_result zelctl(const unit_root &root, std::vector<std::string> words)
{
    words.insert(words.begin(), {ZEL_CTL, "--root", root.path()});
    return run(words);
}

}  // namespace zel::test
