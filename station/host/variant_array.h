#pragma once

#include <list>
#include <string>
#include <vector>

#include "host/host_variant.h"
#include "station/host/counted.h"

namespace station {

/// The arguments of an event as an array of variants, counted from 0. Keeps what its elements refer
/// to: references to objects, copies of texts.
class VariantArray final : public Counted<HostVariantArray> {
  public:
    VariantArray& addObject(HostObject* object);
    VariantArray& addBoolean(bool value);
    VariantArray& addText(std::wstring value);

    HostResult getBounds(std::int32_t* first, std::int32_t* last) override;
    HostResult getElement(std::int32_t index, HostVariant* element) override;
    HostResult copy(HostVariantArray** result) override;

    /// The array as an event's input; the array must outlive the call.
    HostVariant asInput();

  private:
    std::vector<HostVariant> elements;
    std::vector<CountedRef<HostObject>> objects;
    std::list<std::wstring> texts;  ///< a list: the elements point at them
};

}  // namespace station
