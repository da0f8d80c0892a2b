/* An application outside the tree: includes the header, links the library, calls it. */
#include <norvik/norvik.h>
#include <stdio.h>

int main(void) {
    NorvikInit(NULL);
    puts("linked and called");
    return 0;
}
