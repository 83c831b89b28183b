// tesra: libtesra_common on the command line.

#include "commands.h"
#include "messages.h"
#include "reports.h"

#include <getopt.h>
#include <openssl/ui.h>

#include <clocale>
#include <iostream>

namespace {

constexpr const char *summary = R"(Usage: tesra [OPTION...] COMMAND [ARGUMENT...]

  count [FILE...]                             print the number of certificates
  show [--index N] [--json] [FILE...]         print their texts; -1 is the last
  check [--json] [FILE...]                    say what is wrong with a chain
  recover [FILE...]                           write intact certificates as PEM
  base64 encode|decode [--lenient] [FILE...]  convert to Base64 text, or back
  hex encode|decode [--lenient] [FILE...]     convert to hexadecimal, or back
  dump [--label TEXT] [--trace] [FILE...]     show bytes in hexadecimal
  trace MESSAGE                               append a line to the trace file

Without FILE, or with -, the input is standard input. Options:

  --log LEVEL       show the library's reports on standard error up to this
                    level: 2 or error, 3 or warning, 4 or info, 11 or debug
  help, -h, --help  show this summary
  -V, --version     show the version
)";

constexpr option options[] = {
    {"help", 0, nullptr, 0},    {"version", 0, nullptr, 0}, {"log", 1, nullptr, 0},
    {"index", 1, nullptr, 0},   {"label", 1, nullptr, 0},   {"json", 0, nullptr, 0},
    {"lenient", 0, nullptr, 0}, {"trace", 0, nullptr, 0},   {nullptr, 0, nullptr, 0},
};

constexpr struct {
    const char *name;
    const char *options; // the names of its options, beside the common ones
    int (*run)(const command_line &given);
} commands[] = {
    {"count", "", count},          {"show", "index json", show},   {"check", "json", check},
    {"recover", "", recover},      {"base64", "lenient", convert}, {"hex", "lenient", convert},
    {"dump", "label trace", dump}, {"trace", "", trace},
};

command_line read_command_line(int argc, char **argv) {
    command_line given;
    int at = 0;
    // "-": options may follow words, whatever POSIXLY_CORRECT says. ":": getopt_long says nothing
    // itself, since it escapes nothing.
    for (int letter = 0; (letter = getopt_long(argc, argv, "-:hV", options, &at)) != -1;) {
        if (letter == 1) {
            given.words.emplace_back(optarg);
        } else if (letter == 0) {
            given.options[options[at].name] = optarg == nullptr ? "" : optarg;
        } else if (letter == 'h' || letter == 'V') {
            given.options[letter == 'h' ? "help" : "version"] = "";
        } else {
            const char short_option[] = {'-', static_cast<char>(optopt), '\0'};
            const std::string option = optopt == 0 ? argv[optind - 1] : short_option;
            throw wrong_usage(escaped(option) +
                              (letter == ':' ? ": needs a value" : ": no such option"));
        }
    }
    given.words.insert(given.words.end(), argv + optind, argv + argc);
    return given;
}

int position(const std::string &text) {
    const int number = atoi(text.c_str());
    if (std::to_string(number) != text || number < -1) {
        throw wrong_usage("--index: must be a position from 0, or -1 for the last one");
    }
    return number;
}

// Returns the exit status; exceptions are refusals.
int run(command_line given) {
    const bool is_version = given.options.contains("version");
    if (given.options.contains("log")) {
        show_reports(given.options.extract("log").mapped());
    }
    const std::string name = given.words.empty() ? "" : given.words[0];
    if (is_version || given.options.contains("help") || name == "help") {
        std::cout << (is_version ? TESRA_VERSION "\n" : summary);
        return 0;
    }
    if (name.empty()) {
        throw wrong_usage("which command? \"tesra help\" lists them");
    }
    for (const auto &command : commands) {
        if (name != command.name) {
            continue;
        }
        for (const auto &[option, value] : given.options) {
            if (std::string_view(command.options).find(option) == std::string_view::npos) {
                throw wrong_usage(std::string(command.name) + ": does not take --" + option);
            }
        }
        given.command = name;
        given.words.erase(given.words.begin());
        if (given.options.contains("index")) {
            given.index = position(given.options["index"]);
        }
        return command.run(given);
    }
    throw wrong_usage(escaped(name) + ": no such command; \"tesra help\" lists them");
}

} // namespace

int main(int argc, char **argv) {
    try {
        setlocale(LC_CTYPE, "C.UTF-8"); // names are UTF-8 whatever the user's locale
        // A certificate's PEM block may say that it is encrypted. Nobody is asked for a pass
        // phrase: no session to do so can be opened.
        UI_METHOD *const method = UI_create_method("nobody is asked");
        if (UI_method_set_opener(method, [](UI *) { return 0; }) != 0) {
            throw std::bad_alloc();
        }
        UI_set_default_method(method);
        const int status = run(read_command_line(argc, argv));
        check_trace_file();
        if (!std::cout.flush()) {
            throw refusal("standard output: cannot be written");
        }
        return status;
    } catch (const std::exception &error) {
        complain(error.what());
        return dynamic_cast<const wrong_usage *>(&error) != nullptr ? 2 : 1;
    }
}
