/* Adds a line to the trace file, and shows bytes there and in the platform's log. */
#include <tesra_common.h>

int main(void) {
    const uint8_t answer[] = {0x10, 0x84, 0x00, 0x00, 0x01};
    tesra_trace(3, "probe", __LINE__, "No answer for %d ms\n", 500);
    tesra_dump(TESRA_DUMP_LOG | TESRA_DUMP_TRACE, "answer", answer, sizeof answer);
    return 0;
}
