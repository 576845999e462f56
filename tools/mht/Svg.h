// A small writer of the tool's SVG pictures: elements with their attributes in the order
// given, text and attribute values escaped, so that a picture says what it draws and not
// how the markup is spelled.
//
// Numbers are written as the stream writes them: in its general format until decimals()
// fixes a count of decimals. A picture picks the precision its coordinates need; the stream
// gets its own format back when the writer goes.
#pragma once

#include <ios>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace mht {

class Svg {
 public:
  // An attribute's value: a number, or text. Implicit, so that attributes read as
  // {"x", 12.5} and {"fill", "#ffffff"}.
  class Value {
   public:
    template <class Number>
    requires std::is_arithmetic_v<Number> Value(Number n) {
      if constexpr (std::is_floating_point_v<Number>) {
        value_ = static_cast<double>(n);
      } else if constexpr (std::is_signed_v<Number>) {
        value_ = static_cast<long long>(n);
      } else {
        value_ = static_cast<unsigned long long>(n);
      }
    }
    Value(const char* text) : value_(std::string(text)) {}
    Value(std::string text) : value_(std::move(text)) {}

   private:
    friend class Svg;
    std::variant<long long, unsigned long long, double, std::string> value_;
  };

  struct Attribute {
    std::string_view name;
    Value value;
  };
  using Attributes = std::vector<Attribute>;

  struct Point {
    double x;
    double y;
  };

  explicit Svg(std::ostream& out);
  ~Svg();
  Svg(const Svg&) = delete;
  Svg& operator=(const Svg&) = delete;

  // Numbers from here on with `places` decimals.
  void decimals(int places);
  // A number as the writer would write it, for attributes made of several numbers (a
  // transform).
  std::string number(const Value& value) const;

  // <?xml ...?>, for a file of its own.
  void declaration();
  // A page of width x height in the tool's sans-serif at 12, on its light grey background.
  void open(const Value& width, const Value& height);
  void close();

  void openGroup(const Attributes& attributes);
  void closeGroup();
  void rect(const Attributes& attributes);
  void circle(const Attributes& attributes);
  void line(const Value& x1, const Value& x2, const Value& y1, const Value& y2, const Attributes& style = {});
  // The points last, as "x,y x,y ".
  void polyline(const Attributes& style, const std::vector<Point>& points);
  void text(const Attributes& attributes, std::string_view content);

 private:
  void start(std::string_view element, const Attributes& attributes);
  void write(const Attribute& attribute);
  void write(const Value& value);

  std::ostream& out_;
  std::ios_base::fmtflags flags_;
  std::streamsize precision_;
};

}  // namespace mht
