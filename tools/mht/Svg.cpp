#include "Svg.h"

#include <iomanip>
#include <ostream>
#include <sstream>

namespace mht {

namespace {

// The markup's own characters; quotes too, the values being quoted.
void escaped(std::ostream& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&':
        out << "&amp;";
        break;
      case '<':
        out << "&lt;";
        break;
      case '>':
        out << "&gt;";
        break;
      case '"':
        out << "&quot;";
        break;
      default:
        out << c;
    }
  }
}

}  // namespace

Svg::Svg(std::ostream& out) : out_(out), flags_(out.flags()), precision_(out.precision()) {}

Svg::~Svg() {
  out_.flags(flags_);
  out_.precision(precision_);
}

void Svg::decimals(int places) { out_ << std::fixed << std::setprecision(places); }

std::string Svg::number(const Value& value) const {
  std::ostringstream text;
  text.flags(out_.flags());
  text.precision(out_.precision());
  std::visit([&text](const auto& v) { text << v; }, value.value_);
  return text.str();
}

void Svg::declaration() { out_ << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"; }

void Svg::open(const Value& width, const Value& height) {
  start("svg", {{"xmlns", "http://www.w3.org/2000/svg"},
                {"width", width},
                {"height", height},
                {"font-family", "sans-serif"},
                {"font-size", 12}});
  out_ << ">\n";
  rect({{"width", "100%"}, {"height", "100%"}, {"fill", "#fafafa"}});
}

void Svg::close() { out_ << "</svg>\n"; }

void Svg::openGroup(const Attributes& attributes) {
  start("g", attributes);
  out_ << ">\n";
}

void Svg::closeGroup() { out_ << "</g>\n"; }

void Svg::rect(const Attributes& attributes) {
  start("rect", attributes);
  out_ << "/>\n";
}

void Svg::circle(const Attributes& attributes) {
  start("circle", attributes);
  out_ << "/>\n";
}

void Svg::line(const Value& x1, const Value& x2, const Value& y1, const Value& y2, const Attributes& style) {
  start("line", {{"x1", x1}, {"x2", x2}, {"y1", y1}, {"y2", y2}});
  for (const Attribute& a : style) write(a);
  out_ << "/>\n";
}

void Svg::polyline(const Attributes& style, const std::vector<Point>& points) {
  start("polyline", style);
  out_ << " points=\"";
  for (const Point& p : points) out_ << p.x << ',' << p.y << ' ';
  out_ << "\"/>\n";
}

void Svg::text(const Attributes& attributes, std::string_view content) {
  start("text", attributes);
  out_ << '>';
  escaped(out_, content);
  out_ << "</text>\n";
}

void Svg::start(std::string_view element, const Attributes& attributes) {
  out_ << '<' << element;
  for (const Attribute& a : attributes) write(a);
}

void Svg::write(const Attribute& attribute) {
  out_ << ' ' << attribute.name << "=\"";
  write(attribute.value);
  out_ << '"';
}

void Svg::write(const Value& value) {
  if (const auto* text = std::get_if<std::string>(&value.value_)) {
    escaped(out_, *text);
  } else {
    std::visit([this](const auto& v) { out_ << v; }, value.value_);
  }
}

}  // namespace mht
