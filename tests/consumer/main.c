#include <lumivantor/lumivantor.h>
#include <stdio.h>

int main(void) {
    float table[256];
    DimParam d;
    init_dim_param(&d);
    if (exp_lut(table, -8) != 256 || table[136] != 1.0f || d.samplesPerPixel != 3) {
        puts("consumer: unexpected values");
        return 1;
    }
    puts("consumer C ok");
    return 0;
}
