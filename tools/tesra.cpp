// tesra: libtesra_common on the command line.

#include "commands.h"
#include "messages.h"
#include "reports.h"

#include <getopt.h>
#include <openssl/ui.h>

#include <clocale>
#include <cstring>
#include <iostream>
#include <map>

namespace {

constexpr const char *summary = R"(Usage: tesra [OPTION...] COMMAND [ARGUMENT...]

  count [FILE...]                          print the number of certificates
  show [--index N] [--json] [FILE...]      print their texts; -1 is the last
  check [--json] [FILE...]                 say what is wrong with a chain
  recover [FILE...]                        write every intact certificate as PEM
  base64 encode|decode [--lenient] [FILE]  convert bytes to Base64 text, or back
  hex encode|decode [--lenient] [FILE]     convert bytes to hexadecimal, or back
  dump [--label TEXT] [--trace] [FILE]     show bytes in hexadecimal
  trace MESSAGE                            append a line to the trace file

Without FILE, or with -, the input is standard input. Options:

  --log LEVEL       show the library's reports on standard error up to this
                    level: 2 or error, 3 or warning, 4 or info, 11 or debug
  help, -h, --help  show this summary
  -V, --version     show the version
)";

constexpr option options[] = {
    {"help", 0, nullptr, 'h'},  {"version", 0, nullptr, 'V'}, {"log", 1, nullptr, 0},
    {"index", 1, nullptr, 0},   {"label", 1, nullptr, 0},     {"json", 0, nullptr, 0},
    {"lenient", 0, nullptr, 0}, {"trace", 0, nullptr, 0},     {nullptr, 0, nullptr, 0},
};

constexpr struct {
    const char *name;
    const char *options; // the names of its options, beside the common ones
    size_t words;        // that it takes at most
    int (*run)(const command_line &given);
} commands[] = {
    {"count", "", SIZE_MAX, count},          {"show", "index json", SIZE_MAX, show},
    {"check", "json", SIZE_MAX, check},      {"recover", "", SIZE_MAX, recover},
    {"base64 encode", "", 1, base64_encode}, {"base64 decode", "lenient", 1, base64_decode},
    {"hex encode", "", 1, hex_encode},       {"hex decode", "lenient", 1, hex_decode},
    {"dump", "label trace", 1, dump},        {"trace", "", 1, trace},
};

void set_index(command_line &given, const std::string &text) {
    given.index = atoi(text.c_str());
    if (std::to_string(*given.index) != text || *given.index < -1) {
        throw wrong_usage("--index: must be a position from 0, or -1 for the last one");
    }
}

command_line read_command_line(int argc, char **argv) {
    command_line given;
    std::map<std::string, std::string> values;
    int at = 0;
    // "-": words are handed over in their place, whatever POSIXLY_CORRECT says. ":": getopt_long
    // says nothing itself, since it escapes nothing.
    for (int letter = 0; (letter = getopt_long(argc, argv, "-:hV", options, &at)) != -1;) {
        if (letter == 1) {
            given.words.emplace_back(optarg);
        } else if (letter == 0) {
            values[options[at].name] = optarg == nullptr ? "" : optarg;
        } else if (letter == 'h' || letter == 'V') {
            given.help = given.help || letter == 'h';
            given.version = given.version || letter == 'V';
        } else {
            const bool is_short = optopt != 0 && optopt != 'h' && optopt != 'V';
            const std::string word =
                is_short ? std::string("-") + static_cast<char>(optopt) : argv[optind - 1];
            throw wrong_usage(escaped(word) +
                              (letter == ':' ? ": needs a value" : ": no such option"));
        }
    }
    given.words.insert(given.words.end(), argv + optind, argv + argc);
    if (values.contains("log")) {
        show_reports(values.extract("log").mapped());
    }
    if (values.contains("index")) {
        set_index(given, values["index"]);
    }
    given.json = values.contains("json");
    given.lenient = values.contains("lenient");
    given.to_trace_file = values.contains("trace");
    for (const auto &[name, value] : values) {
        given.options.push_back(name);
        given.label = name == "label" ? value : given.label;
    }
    return given;
}

[[noreturn]] void refuse_command(const std::string &first, const std::string &both) {
    if (first.empty()) {
        throw wrong_usage("which command? \"tesra help\" lists them");
    }
    if (first == "base64" || first == "hex") {
        throw wrong_usage(first + ": encode or decode?");
    }
    throw wrong_usage(escaped(both) + ": no such command; \"tesra help\" lists them");
}

// Returns the exit status; exceptions are refusals.
int run(command_line given) {
    auto &words = given.words;
    const std::string first = words.empty() ? "" : words[0];
    const std::string both = words.size() > 1 ? first + ' ' + words[1] : first;
    if (given.version || given.help || first == "help") {
        std::cout << (given.version ? TESRA_VERSION "\n" : summary);
        return 0;
    }
    for (const auto &command : commands) {
        if (first != command.name && both != command.name) {
            continue;
        }
        words.erase(words.begin(), words.begin() + (first == command.name ? 1 : 2));
        for (const std::string &option : given.options) {
            if (std::string_view(command.options).find(option) == std::string_view::npos) {
                throw wrong_usage(std::string(command.name) + ": does not take --" + option);
            }
        }
        if (words.size() > command.words) {
            throw wrong_usage(std::string(command.name) + ": too many arguments");
        }
        return command.run(given);
    }
    refuse_command(first, both);
}

} // namespace

int main(int argc, char **argv) {
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
