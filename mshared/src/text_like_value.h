#pragma once

#include "number_text.h"
#include "value_core.h"
#include "value_text.h"

namespace nbx {

/** A value whose content is not a number by nature: it is read and stored as text, and numbers go through
    that text. `Derived` gives `get_Text` and `put_Text`. */
template <class Derived>
class TextLikeValue : public ValueCore<Derived> {
  public:
    using ValueCore<Derived>::ValueCore;

    bool get_Boolean() const final { return ParseBoolean(Text().get_View()); }
    int64_t get_LLong() const final { return ParseLLong(Text().get_View()); }
    uint64_t get_ULLong() const final { return ParseULLong(Text().get_View()); }
    double get_Double() const final { return ParseDouble(Text().get_View()); }
    void put_Boolean(bool content) final { this->put_Text(BooleanText(content)); }
    void put_LLong(int64_t content) final { this->put_Text(LLongText(content)); }
    void put_ULLong(uint64_t content) final { this->put_Text(ULLongText(content)); }
    void put_Double(double content) final { this->put_Text(DoubleText(content)); }

  private:
    String Text() const { return this->get_Text(); }
};

}  // namespace nbx
