// Synthetic scene, simulated camera and the accuracy measure of a merge against the truth.
#include "synth_bracket.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace lvhdr {
namespace {

// A repeatable hash of a lattice point to [0, 1): texture that needs no stored noise.
double hash01(int x, int y, uint32_t salt) {
    uint32_t h = uint32_t(x) * 0x8da6b343u ^ uint32_t(y) * 0xd8163841u ^ salt * 0xcb1ab31fu;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return (h & 0xFFFFFF) / double(0x1000000);
}

// Smooth value noise with cells of `cell` pixels.
double value_noise(double x, double y, double cell, uint32_t salt) {
    const double fx = x / cell, fy = y / cell;
    const int ix = int(std::floor(fx)), iy = int(std::floor(fy));
    double tx = fx - ix, ty = fy - iy;
    tx = tx * tx * (3 - 2 * tx);
    ty = ty * ty * (3 - 2 * ty);
    const double a = hash01(ix, iy, salt), b = hash01(ix + 1, iy, salt);
    const double c = hash01(ix, iy + 1, salt), d = hash01(ix + 1, iy + 1, salt);
    return (a + (b - a) * tx) + ((c + (d - c) * tx) - (a + (b - a) * tx)) * ty;
}

struct Rgb {
    double r, g, b;
};
Rgb operator*(Rgb c, double k) {
    return {c.r * k, c.g * k, c.b * k};
}
Rgb operator+(Rgb c, Rgb k) {
    return {c.r + k.r, c.g + k.g, c.b + k.b};
}

bool inside(double u, double v, double u0, double v0, double u1, double v1) {
    return u >= u0 && u < u1 && v >= v0 && v < v1;
}

constexpr double sun_light = 6.0;  // irradiance on sunlit surfaces: albedo 0.18 reads ~1
constexpr double sky_light = 0.25; // irradiance in the wall's shadow: 4.6 stops less

// The shadowed brick wall with its grille, doorway and lit window. px, py are pixels.
Rgb wall(double u, double v, double px, double py, double unit) {
    // Lamp-lit window: four panes between dark mullions, a bright lamp in one pane.
    if (inside(u, v, 0.06, 0.20, 0.20, 0.42)) {
        const double mu = (u - 0.06) / 0.14, mv = (v - 0.20) / 0.22;
        const double bar = 0.035;
        if (mu < bar || mu > 1 - bar || mv < bar || mv > 1 - bar || std::fabs(mu - 0.5) < bar / 2 ||
            std::fabs(mv - 0.5) < bar / 2)
            return Rgb{0.3, 0.28, 0.25} * sky_light;
        const double dx = (mu - 0.72) * 0.14, dy = (mv - 0.3) * 0.22 * 0.75;
        const double d = std::sqrt(dx * dx + dy * dy);
        if (d < 0.012) return Rgb{1.0, 0.85, 0.6} * 600.0; // the bulb itself
        const double glow = 25.0 + 90.0 * std::exp(-d / 0.02);
        return Rgb{1.0, 0.78, 0.52} * (glow * (0.9 + 0.2 * value_noise(px, py, 6 * unit, 7)));
    }
    // Doorway: the deepest shadow of the scene, with faint planks and a crate.
    if (inside(u, v, 0.24, 0.60, 0.36, 1.0)) {
        const double plank = 0.75 + 0.5 * hash01(0, int(py / (5 * unit)), 11);
        const double crate = inside(u, v, 0.27, 0.82, 0.32, 0.95) ? 2.5 : 1.0;
        return Rgb{0.9, 0.85, 0.8} *
               (0.003 * plank * crate * (0.9 + 0.2 * hash01(int(px), int(py), 12)));
    }
    // Ventilation grille: alternating one-pixel bars, the finest detail of the scene.
    if (inside(u, v, 0.05, 0.55, 0.17, 0.75)) {
        const double a = (int(px) & 1) ? 0.55 : 0.08;
        return Rgb{0.8, 0.82, 0.85} * (a * sky_light);
    }
    // Bricks in stretcher bond, each its own shade, with pale mortar joints.
    const double bw = 28 * unit, bh = 11 * unit, joint = 2 * unit;
    const int row = int(py / bh);
    const double offset = (row & 1) ? bw / 2 : 0;
    const int col = int((px + offset) / bw);
    const double in_x = std::fmod(px + offset, bw), in_y = std::fmod(py, bh);
    const double grain = 0.85 + 0.3 * hash01(int(px), int(py), 3);
    if (in_x < joint || in_y < joint) return Rgb{0.62, 0.6, 0.56} * (0.5 * sky_light * grain);
    const double shade = 0.22 + 0.25 * hash01(col, row, 5);
    return Rgb{1.0, 0.52, 0.38} * (shade * sky_light * grain);
}

// Sunlit paving with stone joints, and the colour chart lying on it.
Rgb ground(double u, double v, double px, double py, double unit) {
    if (inside(u, v, 0.52, 0.64, 0.94, 0.90)) {
        const double cu = (u - 0.52) / 0.42 * 6, cv = (v - 0.64) / 0.26 * 2;
        const int i = int(cu), j = int(cv);
        const double fu = cu - i, fv = cv - j;
        if (fu < 0.08 || fu > 0.92 || fv < 0.08 || fv > 0.92)
            return Rgb{0.04, 0.04, 0.04} * sun_light; // black frame between patches
        static const Rgb saturated[6] = {{0.70, 0.05, 0.04}, {0.06, 0.50, 0.08},
                                         {0.05, 0.07, 0.60}, {0.80, 0.70, 0.05},
                                         {0.65, 0.06, 0.50}, {0.05, 0.50, 0.70}};
        static const double greys[6] = {0.90, 0.59, 0.36, 0.19, 0.09, 0.031};
        const Rgb albedo =
            j == 0 ? saturated[std::clamp(i, 0, 5)] : Rgb{1, 1, 1} * greys[std::clamp(i, 0, 5)];
        return albedo * sun_light;
    }
    const double sw = 44 * unit, sh = 20 * unit;
    const int row = int(py / sh);
    const double offset = hash01(row, 0, 21) * sw;
    const int col = int((px + offset) / sw);
    const double in_x = std::fmod(px + offset, sw), in_y = std::fmod(py, sh);
    const double joint = (in_x < 2 * unit || in_y < 2 * unit) ? 0.45 : 1.0;
    const double stone = 0.3 + 0.15 * hash01(col, row, 23);
    const double grain = 0.8 + 0.4 * value_noise(px, py, 3 * unit, 24);
    // The wall casts a shadow on the paving next to it.
    const double light = u < 0.40 + 0.25 * (v - 0.5) ? sky_light * 3 : sun_light;
    return Rgb{1.0, 0.93, 0.82} * (stone * joint * grain * light);
}

Rgb sky(double u, double v, double px, double py, double w) {
    const double level = 7.0 + 17.0 * std::min(v / 0.5, 1.0);
    Rgb c = Rgb{0.62, 0.82, 1.15} * level;
    const double sx = 0.78 * w, sy = 0.16 * w;
    const double d = std::hypot(px - sx, py - sy) / w;
    const double radius = 0.022;
    if (d < radius) {
        const double limb = 0.75 + 0.25 * std::sqrt(1 - (d / radius) * (d / radius));
        return Rgb{1.0, 0.97, 0.9} * (8000.0 * limb);
    }
    c = c + Rgb{1.0, 0.9, 0.7} *
                (220.0 * std::exp(-(d - radius) / 0.03) + 30.0 * std::exp(-(d - radius) / 0.15));
    (void)u;
    return c;
}

} // namespace

Scene render_scene(int width, int height) {
    Scene s;
    s.width = width;
    s.height = height;
    s.rgb.assign(size_t(width) * height * 3, 0.0f);
    const double unit = width / 1200.0; // texture scales with the picture
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double u = (x + 0.5) / width, v = (y + 0.5) / height;
            Rgb c;
            if (u < 0.42 && v >= 0.12)
                c = wall(u, v, x, y, unit);
            else if (v < 0.5)
                c = sky(u, v, x, y, width);
            else
                c = ground(u, v, x, y, unit);
            float *p = s.rgb.data() + 3 * (size_t(y) * width + x);
            p[0] = float(c.r);
            p[1] = float(c.g);
            p[2] = float(c.b);
        }
    return s;
}

namespace {
double luminance(const float *rgb) {
    return 0.2 * rgb[0] + 0.7 * rgb[1] + 0.1 * rgb[2];
}
} // namespace

double scene_stops(const Scene &scene) {
    double lo = 1e300, hi = 0;
    for (size_t i = 0; i < scene.rgb.size(); i += 3) {
        const double y = luminance(&scene.rgb[i]);
        if (y > 0) lo = std::min(lo, y);
        hi = std::max(hi, y);
    }
    return hi > 0 ? std::log2(hi / lo) : 0.0;
}

std::vector<float> demo_exposures() {
    // The middle frame puts a mid-grey card (radiance 1) at 18% of full scale.
    std::vector<float> e;
    for (int k = -2; k <= 2; ++k)
        e.push_back(float(0.18 * std::pow(4.0, k)));
    return e;
}

std::vector<Image> photograph(const Scene &scene, const std::vector<float> &exposures,
                              const Camera &camera) {
    // One table from signal to code keeps the 1/2.2 power curve out of the pixel loop.
    constexpr int steps = 1 << 16;
    std::vector<uint8_t> code(steps + 1);
    for (int i = 0; i <= steps; ++i)
        code[size_t(i)] = uint8_t(std::lround(255.0 * std::pow(double(i) / steps, 1 / 2.2)));
    std::mt19937 rng(camera.seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<Image> frames;
    for (float e : exposures) {
        Image im;
        im.width = scene.width;
        im.height = scene.height;
        im.bits = 8;
        im.pixels.resize(im.bytes());
        for (size_t i = 0; i < scene.rgb.size(); ++i) {
            const double electrons = double(e) * scene.rgb[i] * camera.full_well;
            const double sigma = std::sqrt(std::min(electrons, camera.full_well) +
                                           camera.read_noise * camera.read_noise);
            double signal = (electrons + sigma * gauss(rng)) / camera.full_well;
            signal = std::clamp(signal, 0.0, 1.0);
            im.pixels[i] = code[size_t(signal * steps + 0.5)];
        }
        frames.push_back(std::move(im));
    }
    return frames;
}

Accuracy measure_accuracy(const Scene &truth, const HdrImage &merged,
                          const std::vector<float> &exposures) {
    Accuracy a;
    if (exposures.empty() || merged.width != truth.width || merged.height != truth.height) return a;
    const double darkest = *std::min_element(exposures.begin(), exposures.end());
    const double brightest = *std::max_element(exposures.begin(), exposures.end());
    std::vector<double> ratio;
    ratio.reserve(size_t(truth.width) * truth.height);
    for (int y = 0; y < truth.height; ++y)
        for (int x = 0; x < truth.width; ++x) {
            const float *t = truth.rgb.data() + 3 * (size_t(y) * truth.width + x);
            const double peak = std::max({t[0], t[1], t[2]});
            const double yt = luminance(t);
            // Recorded: unclipped in the darkest frame with margin for noise, and at least
            // about 20 codes in the brightest frame.
            if (peak * darkest > 0.95 || yt * brightest < 0.004) continue;
            float m[3];
            rgbe_pixel(merged, x, y, m);
            ratio.push_back(luminance(m) / yt);
        }
    if (ratio.empty()) return a;
    a.pixels = ratio.size();
    auto mid = ratio.begin() + ratio.size() / 2;
    std::nth_element(ratio.begin(), mid, ratio.end());
    a.scale = *mid;
    if (!(a.scale > 0)) return a;
    for (double &r : ratio)
        r = std::fabs(r / a.scale - 1.0);
    std::nth_element(ratio.begin(), mid, ratio.end());
    a.median_error = *mid;
    auto p90 = ratio.begin() + ratio.size() * 9 / 10;
    std::nth_element(ratio.begin(), p90, ratio.end());
    a.p90_error = *p90;
    return a;
}

Image shrink(const Image &image, int factor) {
    Image out;
    out.width = image.width / factor;
    out.height = image.height / factor;
    out.bits = image.bits;
    out.pixels.assign(out.bytes(), 0);
    const bool wide = image.bits == 16;
    auto get = [&](size_t i) -> unsigned {
        return wide ? reinterpret_cast<const uint16_t *>(image.pixels.data())[i] : image.pixels[i];
    };
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x)
            for (int c = 0; c < 3; ++c) {
                unsigned sum = 0;
                for (int j = 0; j < factor; ++j)
                    for (int i = 0; i < factor; ++i)
                        sum += get(3 * (size_t(y * factor + j) * image.width + x * factor + i) + c);
                const unsigned v = (sum + factor * factor / 2) / (factor * factor);
                const size_t o = 3 * (size_t(y) * out.width + x) + c;
                if (wide)
                    reinterpret_cast<uint16_t *>(out.pixels.data())[o] = uint16_t(v);
                else
                    out.pixels[o] = uint8_t(v);
            }
    return out;
}

} // namespace lvhdr
