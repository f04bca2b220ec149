#include "bridge/input/input_list_impl.h"

#include <algorithm>
#include <utility>

namespace Kestrova::Utils::Kcom::InputChannel {

void InputListImpl::setFilter(Filter newFilter) {
    filter = std::move(newFilter);
    refresh();
}

void InputListImpl::setSort(Sort newSort) {
    sort = std::move(newSort);
    refresh();
}

void InputListImpl::refresh() {
    if (!source) {
        return;
    }
    Channels found = source();
    if (filter) {
        std::erase_if(found, [&](const Channel& channel) { return !filter(*channel); });
    }
    if (sort) {
        std::stable_sort(found.begin(), found.end(),
                         [&](const Channel& a, const Channel& b) { return sort(*a, *b); });
    }
    channels = std::move(found);
}

}  // namespace Kestrova::Utils::Kcom::InputChannel
