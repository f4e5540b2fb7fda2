// The report page's HTML and its two inline SVG plots.
#include "report_page.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace lvhdr {
namespace {

const char *page_style = R"(
body{font:15px/1.4 sans-serif;margin:0 auto;max-width:1400px;padding:0 16px 40px;color:#222;background:#f4f4f2}
h1{font-size:24px;margin:18px 0 4px}h2{font-size:18px;margin:26px 0 8px;border-bottom:1px solid #ccc}
p.sum{margin:2px 0;color:#555}
.row,.grid{display:grid;gap:12px}
.row{grid-template-columns:repeat(auto-fill,minmax(200px,1fr))}
.grid{grid-template-columns:repeat(auto-fill,minmax(220px,1fr))}
figure{margin:0;background:#fff;padding:6px;border:1px solid #ddd}
figure img{width:100%;height:auto;display:block;background:#000}
figcaption{font-size:13px;margin-top:4px}figcaption b{display:block}
.set{color:#666;font-family:monospace;font-size:12px}
table{border-collapse:collapse;margin:6px 0}td{padding:2px 12px 2px 0}
svg{background:#fff;border:1px solid #ddd;max-width:100%;height:auto}
.box{display:none;position:fixed;inset:0;background:rgba(0,0,0,.9);z-index:9;align-items:center;justify-content:center}
.box:target{display:flex}.box img{max-width:96vw;max-height:92vh}
.box span{position:absolute;top:8px;left:14px;color:#eee}
)";

std::string format(const char *fmt, double a, double b = 0, double c = 0, double d = 0) {
    char buf[160];
    std::snprintf(buf, sizeof buf, fmt, a, b, c, d);
    return buf;
}

// A figure whose thumbnail opens its full-size picture in a lightbox (the :target rule
// in the style sheet), so the page needs no script.
void figure(std::string &html, const PageImage &im, const std::string &id,
            std::vector<std::pair<std::string, const PageImage *>> &boxes) {
    html += "<figure><a href=\"#" + id + "\"><img src=\"" + html_escape(im.thumb) + "\" width=\"" +
            std::to_string(im.width) + "\" height=\"" + std::to_string(im.height) + "\" alt=\"" +
            html_escape(im.caption) + "\"></a>";
    html += "<figcaption><b>" + html_escape(im.caption) + "</b>";
    if (!im.settings.empty()) html += "<span class=\"set\">" + html_escape(im.settings) + "</span>";
    if (im.seconds >= 0) html += format("<br>%.3f s", im.seconds);
    html += "</figcaption></figure>\n";
    boxes.emplace_back(id, &im);
}

void section(std::string &html, const char *heading, const char *layout,
             const std::vector<PageImage> &images, const char *prefix,
             std::vector<std::pair<std::string, const PageImage *>> &boxes) {
    if (images.empty()) return;
    html += std::string("<h2>") + heading + "</h2>\n<div class=\"" + layout + "\">\n";
    for (size_t i = 0; i < images.size(); ++i)
        figure(html, images[i], prefix + std::to_string(i + 1), boxes);
    html += "</div>\n";
}

// Maps value v in [lo, hi] onto [a, b].
double scale(double v, double lo, double hi, double a, double b) {
    return hi > lo ? a + (v - lo) / (hi - lo) * (b - a) : a;
}

// The frame, the x-axis ticks at whole stops and the axis titles shared by both plots.
std::string plot_frame(double x0, double x1, double top, const char *x_title,
                       const std::string &y_title) {
    const double L = 60, R = 620, T = 20, B = 220;
    std::string s = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"640\" height=\"260\" "
                    "viewBox=\"0 0 640 260\" font-family=\"sans-serif\" font-size=\"11\">\n";
    s += format("<path d=\"M%.0f %.0fV%.0fH%.0f\" fill=\"none\" stroke=\"#444\"/>\n", L, T, B, R);
    const int step = std::max(1, int(std::ceil((x1 - x0) / 12)));
    for (int t = int(std::ceil(x0)); t <= int(std::floor(x1)); ++t) {
        if (t % step) continue;
        const double x = scale(t, x0, x1, L, R);
        s += format("<path d=\"M%.1f %.0fv4\" stroke=\"#444\"/><text x=\"%.1f\" y=\"%.0f\" "
                    "text-anchor=\"middle\">",
                    x, B, x, B + 16) +
             std::to_string(t) + "</text>\n";
    }
    for (int k = 0; k <= 4; ++k) {
        const double y = scale(k, 0, 4, B, T);
        s += format("<path d=\"M%.0f %.1fh-4\" stroke=\"#444\"/><text x=\"%.0f\" y=\"%.1f\" "
                    "text-anchor=\"end\">",
                    L, y, L - 6, y + 4) +
             format("%.3g", top * k / 4) + "</text>\n";
    }
    s += std::string("<text x=\"340\" y=\"252\" text-anchor=\"middle\">") + x_title + "</text>\n";
    s += "<text x=\"14\" y=\"120\" text-anchor=\"middle\" transform=\"rotate(-90 14 120)\">" +
         y_title + "</text>\n";
    return s;
}

// A round top for a percent axis: 1, 2 or 5 times a power of ten, at least `top`.
double round_up(double top) {
    const double decade = std::pow(10.0, std::floor(std::log10(std::max(top, 1e-3))));
    for (double m : {1.0, 2.0, 5.0})
        if (m * decade >= top) return m * decade;
    return 10 * decade;
}

} // namespace

std::string html_escape(const std::string &text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string error_plot_svg(const std::vector<ErrorBin> &bins) {
    if (bins.empty()) return "";
    double x0 = bins.front().stops - 0.5, x1 = bins.back().stops + 0.5, top = 0;
    for (const ErrorBin &b : bins)
        top = std::max(top, 100 * b.p90_error);
    top = round_up(top);
    std::string s = plot_frame(x0, x1, top, "true luminance (stops)", "relative error (%)");
    std::string median, p90;
    for (const ErrorBin &b : bins) {
        const double x = scale(b.stops, x0, x1, 60, 620);
        median += format("%.1f,%.1f ", x, scale(100 * b.median_error, 0, top, 220, 20));
        p90 += format("%.1f,%.1f ", x, scale(100 * b.p90_error, 0, top, 220, 20));
    }
    s += "<polyline points=\"" + p90 + "\" fill=\"none\" stroke=\"#d08c2c\" stroke-width=\"2\"/>\n";
    s += "<polyline points=\"" + median +
         "\" fill=\"none\" stroke=\"#2c6fd0\" stroke-width=\"2\"/>\n";
    s += "<text x=\"600\" y=\"34\" text-anchor=\"end\" fill=\"#2c6fd0\">median</text>"
         "<text x=\"600\" y=\"48\" text-anchor=\"end\" fill=\"#d08c2c\">90th percentile</text>\n";
    return s + "</svg>\n";
}

std::string histogram_svg(const std::vector<size_t> &counts, double first_stop, double bin_stops) {
    if (counts.empty()) return "";
    const double x0 = first_stop, x1 = first_stop + bin_stops * double(counts.size());
    size_t most = 1;
    for (size_t c : counts)
        most = std::max(most, c);
    double total = 0;
    for (size_t c : counts)
        total += double(c);
    const double top = round_up(100.0 * double(most) / total);
    std::string s = plot_frame(x0, x1, top, "luminance (stops, log2)", "pixels (%)");
    const double w = 560.0 / double(counts.size());
    for (size_t i = 0; i < counts.size(); ++i) {
        if (!counts[i]) continue;
        const double h = 200.0 * 100.0 * double(counts[i]) / total / top;
        s += format("<rect x=\"%.2f\" y=\"%.2f\" width=\"%.2f\" height=\"%.2f\" fill=\"#5a7\"/>\n",
                    60 + w * double(i), 220 - h, std::max(w - 0.5, 0.5), h);
    }
    return s + "</svg>\n";
}

bool write_report_page(const std::string &dir, const ReportPage &page, std::string &error) {
    std::string html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<title>" +
                       html_escape(page.title) + "</title>\n<style>" + page_style +
                       "</style>\n</head>\n<body>\n<h1>" + html_escape(page.title) + "</h1>\n";
    for (const std::string &line : page.summary)
        html += "<p class=\"sum\">" + html_escape(line) + "</p>\n";
    std::vector<std::pair<std::string, const PageImage *>> boxes;
    section(html, "The bracket", "row", page.bracket, "frame", boxes);
    section(html, "The merged HDR at several exposures", "row", page.exposures, "ev", boxes);
    section(html, "Tone mappers and exposure fusion, side by side", "grid", page.results, "result",
            boxes);
    if (!page.accuracy.empty() || !page.error_by_luminance.empty()) {
        html += "<h2>The merge's error against the true radiance</h2>\n<table>\n";
        for (const std::string &line : page.accuracy)
            html += "<tr><td>" + html_escape(line) + "</td></tr>\n";
        html += "</table>\n" + error_plot_svg(page.error_by_luminance);
    }
    if (!page.histogram.empty()) {
        html += "<h2>Luminance histogram of the HDR</h2>\n";
        html += histogram_svg(page.histogram, page.histogram_first_stop, page.histogram_bin_stops);
    }
    for (const auto &[id, im] : boxes)
        html += "<div class=\"box\" id=\"" + id + "\"><a href=\"#_\"><img src=\"" +
                html_escape(im->full) + "\" alt=\"" + html_escape(im->caption) +
                " at full size\"></a><span>" + html_escape(im->caption) + "</span></div>\n";
    html += "</body>\n</html>\n";
    return write_atomically(dir + "/index.html", error,
                            [&](const std::string &tmp, std::string &err) {
                                std::ofstream out(tmp, std::ios::binary);
                                out << html;
                                out.close();
                                if (!out) err = "cannot write the page";
                                return bool(out);
                            });
}

} // namespace lvhdr
