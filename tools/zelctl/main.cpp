// zelctl: looks into a running unit and changes it, through the unit's control socket.
#include "commands.h"
#include "common/json_text.h"
#include "exit_status.h"
#include "table.h"
#include "unit_link.h"
#include "watching.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

struct global_options {
    bool json = false, help = false, version = false;
    std::vector<std::string> words;  // the command and what belongs to it
};

// Options of zelctl itself may stand on either side of the command.
global_options take_globals(int count, char **given)
{
    global_options taken;
    bool only_arguments = false;
    for (int i = 1; i < count; ++i) {
        const std::string word = given[i];
        only_arguments |= word == "--";
        const bool option = !only_arguments;
        if (option && word == "--json") taken.json = true;
        else if (option && (word == "--help" || word == "-h")) taken.help = true;
        else if (option && word == "--version") taken.version = true;
        else if (option && word.starts_with("--root=")) (void)setenv("ZEL_ROOT", word.c_str() + std::strlen("--root="), 1);
        else if (option && word == "--root") {
            if (++i == count) throw zel::usage_error("--root needs a folder");
            (void)setenv("ZEL_ROOT", given[i], 1);
        } else taken.words.push_back(word);
    }
    return taken;
}

std::string help()
{
    std::string text = "usage: zelctl [--root DIR] [--json] COMMAND ...\n\n";
    zel::text_table table({"COMMAND", "WHAT IT DOES"});
    for (const zel::command_row &row : zel::command_table()) {
        table.add({std::string(row.name) + " " + std::string(row.arguments), std::string(row.meaning)});
    }
    return text + table.text() +
           "\nPIN is a pin's number or a port's name (\"GPI 1\", \"COUGH 1\"). INPUT and OUTPUT are names of ports (\"GPI 1\",\n"
           "\"vGPI 2\", \"User Button 1\", \"GPO 3\", \"vGPO 1\", \"User LED 1\", \"Relay 1\"), triggers and handlers.\n"
           "  --root DIR  the unit's root (default: $ZEL_ROOT, else /)\n"
           "  --json      print the unit's answer as one JSON document, for watch one per line\n"
           "\nExit status: 0 done, 1 refused by the unit, 2 wrong command line, 3 no unit is running, 4 the unit does not\n"
           "answer, 5 (watch) the time was up before --count lines.\n";
}

int print(const std::string &text)
{
    return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? zel::done : zel::link_failed;
}

int complain(int status, const std::string &text)
{
    std::fprintf(stderr, "zelctl: %s\n", text.c_str());
    return status;
}

std::string note_in(const json_t *answer)
{
    const char *const note = json_string_value(json_object_get(answer, "note"));
    return note != nullptr ? zel::printable(note) : "";
}

std::string as_document(const json_t *answer)
{
    const auto text = zel::json_text(answer, JSON_INDENT(2));
    if (!text) throw std::bad_alloc();
    return *text + "\n";
}

int run_command(const zel::command_words &words, bool as_json)
{
    const zel::json_handle request(words.command->request(words));
    zel::unit_link link;
    const zel::json_handle answer = link.ask(request.get());
    if (!json_is_true(json_object_get(answer.get(), "ok"))) {
        const char *const why = json_string_value(json_object_get(answer.get(), "error"));
        return complain(zel::refused, why != nullptr ? zel::printable(why) : "refused");
    }
    if (words.command->name == "watch") return zel::watch(link, words, as_json);
    if (as_json) return print(as_document(answer.get()));
    const std::string note = note_in(answer.get());
    if (!note.empty()) std::fprintf(stderr, "zelctl: note: %s\n", note.c_str());
    return words.command->print != nullptr ? print(words.command->print(answer.get())) : zel::done;
}

int run(int count, char **given)
{
    const global_options options = take_globals(count, given);
    if (options.help) return print(help());
    if (options.version) return print("zelctl " ZEL_VERSION "\n");
    if (options.words.empty()) throw zel::usage_error("a command is missing (try --help)");
    return run_command(zel::take_command(options.words), options.json);
}

}  // namespace

int main(int count, char **given)
{
    try {
        return run(count, given);
    } catch (const zel::usage_error &problem) {
        return complain(zel::wrong_command_line, problem.what());
    } catch (const zel::link_problem &problem) {
        return complain(problem.status, problem.text);
    } catch (const std::bad_alloc &) {
        return complain(zel::link_failed, "out of memory");
    }
}
