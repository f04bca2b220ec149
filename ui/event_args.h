#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "host/toolkit_grid.h"
#include "ui/controls.h"
#include "ui/object_ptr.h"

/// What events bring, as the handlers see it. Colours are 0x00RRGGBB, texts UTF-8.
namespace Kestrova::Tessel {

template <typename I>
class DrawGridEventArgsPtr : public EventArgsPtr<I> {
  public:
    using EventArgsPtr<I>::EventArgsPtr;

    /// Row 0 is the header.
    std::int32_t getRow() const { return this->value(&IDrawGridEventArgs::getRow); }
    std::int32_t getColumn() const { return this->value(&IDrawGridEventArgs::getColumn); }
};

class DrawGridCellPropsArgs : public DrawGridEventArgsPtr<IDrawGridCellPropsArgs> {
  public:
    using DrawGridEventArgsPtr::DrawGridEventArgsPtr;

    void setText(const std::string& text) const {
        call(&IDrawGridCellPropsArgs::setText, RT::Core::StringPtr(getRuntime(), text).get());
    }
    void setNumber(double number) const { call(&IDrawGridCellPropsArgs::setNumber, number); }
    /// A number of `CellType`.
    void setCellType(std::int32_t type) const { call(&IDrawGridCellPropsArgs::setCellType, type); }
    void setChecked(bool checked) const {
        call(&IDrawGridCellPropsArgs::setChecked, toHostBool(checked));
    }
    void setColor(std::uint32_t color) const { call(&IDrawGridCellPropsArgs::setColor, color); }
    /// 1 for an expander, 0 for none.
    void setExpander(std::int32_t flag) const { call(&IDrawGridCellPropsArgs::setExpander, flag); }
};

class DrawGridComboItemsArgs : public DrawGridEventArgsPtr<IDrawGridComboItemsArgs> {
  public:
    using DrawGridEventArgsPtr::DrawGridEventArgsPtr;

    void addItem(const std::string& text) const {
        call(&IDrawGridComboItemsArgs::addItem, RT::Core::StringPtr(getRuntime(), text).get());
    }
};

class DrawGridLiveValueArgs : public DrawGridEventArgsPtr<IDrawGridLiveValueArgs> {
  public:
    using DrawGridEventArgsPtr::DrawGridEventArgsPtr;
};

class DrawGridCellActionEventArgs : public DrawGridEventArgsPtr<IDrawGridCellActionEventArgs> {
  public:
    using DrawGridEventArgsPtr::DrawGridEventArgsPtr;

    bool getChecked() const { return isTrue(value(&IDrawGridCellActionEventArgs::getChecked)); }
};

class DrawGridCellInputArgs : public DrawGridEventArgsPtr<IDrawGridCellInputArgs> {
  public:
    using DrawGridEventArgsPtr::DrawGridEventArgsPtr;

    std::string getText() const {
        return RT::Core::StringPtr(object(&IDrawGridCellInputArgs::getText)).getText();
    }
    std::uint32_t getColor() const { return value(&IDrawGridCellInputArgs::getColor); }
    std::int32_t getSelectedIndex() const {
        return value(&IDrawGridCellInputArgs::getSelectedIndex);
    }
};

class DrawGridSetGroupsArgs : public DrawGridEventArgsPtr<IDrawGridSetGroupsArgs> {
  public:
    using DrawGridEventArgsPtr::DrawGridEventArgsPtr;

    DrawGridGroup addGroup(const std::string& name, std::int32_t row, bool expanded) const {
        return DrawGridGroup(object(&IDrawGridSetGroupsArgs::addGroup,
                                    RT::Core::StringPtr(getRuntime(), name).get(), row,
                                    toHostBool(expanded)));
    }
    void addRow(const std::string& groupName, std::int32_t row) const {
        call(&IDrawGridSetGroupsArgs::addRow, RT::Core::StringPtr(getRuntime(), groupName).get(),
             row);
    }
};

}  // namespace Kestrova::Tessel
