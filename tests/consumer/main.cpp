#include <lumivantor/lumivantor.h>

#include <cstdio>

int main() {
    float p[LV_TMPARAM_COUNT];
    if (tmparam_default(1, 0, p) != 0 || p[1] != 70.0f || arrondi(2.51f) != 3) {
        std::puts("consumer: unexpected values");
        return 1;
    }
    std::puts("consumer C++ ok");
    return 0;
}
