#include "input.h"

#include "messages.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

using file_ptr = std::unique_ptr<FILE, decltype([](FILE *file) { fclose(file); })>;

// The library takes no text of 2^31 bytes or more, so no more than that is read.
std::string read_all(const std::string &path, const std::string &name) {
    const file_ptr opened(path == "-" ? nullptr : fopen(path.c_str(), "rb"));
    FILE *const file = path == "-" ? stdin : opened.get();
    struct stat status = {};
    if (file == nullptr || fstat(fileno(file), &status) != 0) {
        throw refusal(name + ": " + strerror(errno));
    }
    std::string bytes;
    size_t size = S_ISREG(status.st_mode) ? static_cast<size_t>(status.st_size) : 0;
    char chunk[65536];
    for (size_t got = 1; got > 0 && size <= INT_MAX; size = bytes.size()) {
        got = fread(chunk, 1, sizeof chunk, file);
        bytes.append(chunk, got);
    }
    if (ferror(file) != 0 || size > INT_MAX) {
        throw refusal(name + ": " + (size > INT_MAX ? "2 GiB or larger" : strerror(errno)));
    }
    return bytes;
}

} // namespace

int for_each_file(const command_line &given,
                  const std::function<void(const input &file, json &object)> &handle) {
    int status = 0;
    json list = json::array();
    for (const std::string &path :
         given.words.empty() ? std::vector<std::string>{"-"} : given.words) {
        const std::string name = path == "-" ? "standard input" : escaped(path);
        json object = {{"file", path}, {"error", nullptr}};
        try {
            handle({path, name, read_all(path, name)}, object);
        } catch (const refusal &reason) {
            object["error"] = reason.what();
        } catch (const std::bad_alloc &) {
            object["error"] = name + ": out of memory";
        }
        if (!object["error"].is_null()) {
            complain(object["error"]);
        }
        status = object["error"].is_null() && object.value("count", 1) > 0 ? status : 1;
        list.push_back(object);
    }
    // ASCII: JSON's own escapes then cover every character that acts on a terminal.
    if (given.has('j')) {
        std::cout << list.dump(2, ' ', true, json::error_handler_t::replace) << '\n';
    }
    return status;
}
