#pragma once

#include "bridge/output/properties.h"
#include "host/counted_ref.h"
#include "host/host_channel.h"
#include "host/host_document.h"

namespace Kestrova::Utils::Kcom {

/// The property documents of a host channel. Without a set each look-up raises
/// `HostCode::invalidPointer`.
class PropertiesImpl final : public Properties {
  public:
    std::shared_ptr<Node> getNode(const std::string& name) const override;
    std::shared_ptr<Node> getChildNode(const std::string& name,
                                       const std::shared_ptr<Node>& parent) const override;
    std::shared_ptr<Node> addNode(const std::string& name) override;

    void attachSet(CountedRef<HostPropertySet> newSet) { set = std::move(newSet); }
    void detachSet() { set.reset(); }
    const CountedRef<HostPropertySet>& getSet() const { return set; }

  private:
    CountedRef<HostDocument> findDocument(const std::string& name) const;

    CountedRef<HostPropertySet> set;
};

}  // namespace Kestrova::Utils::Kcom
