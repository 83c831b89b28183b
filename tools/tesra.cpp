// tesra: libtesra_common on the command line.

#include "commands.h"
#include "messages.h"
#include "reports.h"

#include <getopt.h>
#include <openssl/ui.h>

#include <clocale>
#include <cstring>
#include <iostream>

namespace {

constexpr const char *summary = R"(Usage: tesra [OPTION...] COMMAND [ARGUMENT...]

  count [FILE...]                          the number of certificates
  show [--index N] [--json] [FILE...]      their texts; position -1 is the last
  check [--json] [FILE...]                 what each block is, and what is wrong
  base64 encode|decode [--lenient] [FILE]  bytes to Base64 text, or back
  hex encode|decode [--lenient] [FILE]     bytes to hexadecimal text, or back
  dump [--label TEXT] [--trace] [FILE]     bytes in hexadecimal, 16 to a line
  trace MESSAGE                            a line for the trace file

Without FILE, or with -, the input is standard input. Options:

  --log LEVEL       show the library's reports on standard error up to this
                    level: 2 or error, 3 or warning, 4 or info, 11 or debug
  help, -h, --help  show this summary
  -V, --version     show the version
)";

constexpr option options[] = {
    {"help", 0, nullptr, 'h'},    {"version", 0, nullptr, 'V'}, {"log", 1, nullptr, 'L'},
    {"index", 1, nullptr, 'i'},   {"label", 1, nullptr, 'l'},   {"json", 0, nullptr, 'j'},
    {"lenient", 0, nullptr, 'e'}, {"trace", 0, nullptr, 't'},   {nullptr, 0, nullptr, 0},
};

constexpr struct {
    const char *name;
    const char *options; // letters of those that it takes, beside the first three
    size_t words;        // that it takes at most
    int (*run)(const command_line &given);
} commands[] = {
    {"count", "", SIZE_MAX, count},
    {"show", "ij", SIZE_MAX, show},
    {"check", "j", SIZE_MAX, check},
    {"base64 encode", "", 1, base64_encode},
    {"base64 decode", "e", 1, base64_decode},
    {"hex encode", "", 1, hex_encode},
    {"hex decode", "e", 1, hex_decode},
    {"dump", "lt", 1, dump},
    {"trace", "", 1, trace},
};

command_line read_command_line(int argc, char **argv) {
    command_line given;
    // "-" in front: words are handed over in their place, whatever POSIXLY_CORRECT says.
    for (int letter = 0; (letter = getopt_long(argc, argv, "-hV", options, nullptr)) != -1;) {
        if (letter == '?') {
            exit(2); // getopt_long has said why
        } else if (letter == 1) {
            given.words.emplace_back(optarg);
        } else if (letter == 'L') {
            show_reports(optarg);
        } else {
            given.options += static_cast<char>(letter);
        }
        if (letter == 'i') {
            char *end = nullptr;
            const long index = strtol(optarg, &end, 10);
            if (end == optarg || *end != '\0' || index < -1 || index != static_cast<int>(index)) {
                throw wrong_usage("--index: must be a position from 0, or -1 for the last one");
            }
            given.index = static_cast<int>(index);
        } else if (letter == 'l') {
            given.label = optarg;
        }
    }
    given.words.insert(given.words.end(), argv + optind, argv + argc);
    return given;
}

// Returns the exit status; exceptions are refusals.
int run(command_line given) {
    auto &words = given.words;
    const std::string first = words.empty() ? "" : words[0];
    const std::string both = words.size() > 1 ? first + ' ' + words[1] : first;
    if (given.has('V') || given.has('h') || first == "help") {
        std::cout << (given.has('V') ? TESRA_VERSION "\n" : summary);
        return 0;
    }
    for (const auto &command : commands) {
        if (first != command.name && both != command.name) {
            continue;
        }
        words.erase(words.begin(), words.begin() + (first == command.name ? 1 : 2));
        const bool has_others =
            given.options.find_first_not_of(command.options) != std::string::npos;
        if (has_others || words.size() > command.words) {
            throw wrong_usage(std::string(command.name) +
                              (has_others ? ": not with such an option" : ": too many arguments"));
        }
        return command.run(given);
    }
    throw wrong_usage((first.empty() ? "which command?" : escaped(both) + ": no such command;") +
                      " \"tesra help\" lists them");
}

} // namespace

int main(int argc, char **argv) {
    argv[0] = const_cast<char *>("tesra"); // in what getopt_long says
    try {
        setlocale(LC_CTYPE, "C.UTF-8"); // names are UTF-8 whatever the user's locale
        // A certificate's PEM block may say that it is encrypted. Nobody is asked for a pass
        // phrase: no session to do so can be opened.
        UI_METHOD *const method = UI_create_method("nobody is asked");
        if (method == nullptr || UI_method_set_opener(method, [](UI *) { return 0; }) != 0) {
            throw std::bad_alloc();
        }
        UI_set_default_method(method);
        const int status = run(read_command_line(argc, argv));
        if (!std::cout.flush()) {
            throw refusal("standard output: cannot be written");
        }
        return status;
    } catch (const std::exception &error) {
        complain(error.what());
        return dynamic_cast<const wrong_usage *>(&error) != nullptr ? 2 : 1;
    }
}
