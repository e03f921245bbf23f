#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{
int *volatile lost = nullptr;
}

// Replaces the program. It fails in the way that its argument names, to prove that the tests
// notice.
int migratorMain(int argumentCount, char **arguments)
{
    const std::string way = argumentCount > 1 ? arguments[1] : "";
    if (way == "abort") {
        std::abort();
    }
    if (way == "print") {
        std::puts("printed");
    }
    if (way == "loop") {
        for (volatile bool goesOn = true; goesOn;) {
        }
    }
    if (way == "overflow") {
        volatile int past = 8;
        int *numbers = new int[8];
        numbers[past] = 0;
        delete[] numbers;
    }
    if (way == "leak") {
        lost = new int[8];
        lost = nullptr;
    }
    return way == "status" ? 3 : 0;
}
