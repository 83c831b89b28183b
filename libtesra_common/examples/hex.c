/* Turns three bytes into hexadecimal and back: "00FF7F: 3 bytes". */
#include <stdio.h>
#include <stdlib.h>
#include <tesra_common.h>

int main(void) {
    const uint8_t bytes[] = {0x00, 0xFF, 0x7F};
    uint32_t length = 0;
    char *text = tesra_hex_encode(bytes, sizeof bytes, &length);
    if (text == NULL) {
        return 1;
    }
    uint32_t size = 0;
    uint8_t *decoded = tesra_hex_decode(text, length, &size);
    if (decoded != NULL) {
        printf("%s: %u bytes\n", text, (unsigned)size);
    }
    free(text);
    free(decoded);
    return decoded != NULL ? 0 : 1;
}
