#pragma once

#include <utility>

#include "nbx/value.h"

namespace mduckdb::test {

/** A value of a class of the host's: another value's content, behind a class that `mshared` does not know. */
class HostsOwnValue : public nbx::Counted<nbx::I_Value> {
  public:
    explicit HostsOwnValue(nbx::smart_ptr<nbx::I_Value> inner) : inner_(std::move(inner)) {}
    void* QueryInterface(uint32_t interface_id) override {
        BeforeCall();
        return inner_->QueryInterface(interface_id);
    }
    uint32_t get_TypeCode() const override { return Inner().get_TypeCode(); }
    bool get_IsNullable() const override { return Inner().get_IsNullable(); }
    bool get_IsNull() const override { return Inner().get_IsNull(); }
    void put_IsNull(bool is_null) override { inner_->put_IsNull(is_null); }
    bool get_Boolean() const override { return Inner().get_Boolean(); }
    int64_t get_LLong() const override { return Inner().get_LLong(); }
    uint64_t get_ULLong() const override { return Inner().get_ULLong(); }
    double get_Double() const override { return Inner().get_Double(); }
    nbx::String get_Text() const override { return Inner().get_Text(); }
    void put_Boolean(bool content) override { inner_->put_Boolean(content); }
    void put_LLong(int64_t content) override { inner_->put_LLong(content); }
    void put_ULLong(uint64_t content) override { inner_->put_ULLong(content); }
    void put_Double(double content) override { inner_->put_Double(content); }
    void put_Text(nbx::String content) override { inner_->put_Text(std::move(content)); }

  protected:
    /** Called first by all that reads the value. */
    virtual void BeforeCall() const {}

  private:
    const nbx::I_Value& Inner() const {
        BeforeCall();
        return *inner_;
    }
    nbx::smart_ptr<nbx::I_Value> inner_;
};

}  // namespace mduckdb::test
