// The installed library as a C++ program meets it.
#include <tesra_common.h>

#include <cstdlib>
#include <cstring>

int main() {
    const uint8_t bytes[] = {0x00, 0xFF, 0x7F};
    uint32_t length = 0;
    char *text = tesra_hex_encode(bytes, sizeof bytes, &length);
    const bool good = text != nullptr && length == 6 && strcmp(text, "00FF7F") == 0;
    free(text);
    return good ? 0 : 1;
}
