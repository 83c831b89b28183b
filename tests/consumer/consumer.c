/* The installed library as a program meets it, in C as in C++. */
#include <stdlib.h>
#include <string.h>
#include <tesra_common.h>

int main(void) {
    const uint8_t bytes[] = {0x00, 0xFF, 0x7F};
    uint32_t length = 0;
    char *text = tesra_hex_encode(bytes, sizeof bytes, &length);
    int good = text != NULL && length == 6 && strcmp(text, "00FF7F") == 0;
    free(text);
    return good ? 0 : 1;
}
