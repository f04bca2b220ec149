#include "bridge/output/properties_impl.h"

#include <utility>

#include "bridge/output/host_reads.h"
#include "setup/kestrova_kcom_node.h"

namespace Kestrova::Utils::Kcom {
namespace {

std::shared_ptr<Serialization::Node> rootOf(const CountedRef<HostDocument>& document) {
    if (!document) {
        return nullptr;
    }
    return std::make_shared<KestrovaKCOMNodeCreator>(
        document, hostObject(document, &HostDocument::GetRootElement));
}

}  // namespace

std::shared_ptr<PropertiesImpl::Node> PropertiesImpl::getNode(const std::string& name) const {
    return rootOf(findDocument(name));
}

std::shared_ptr<PropertiesImpl::Node> PropertiesImpl::getChildNode(
    const std::string& name, const std::shared_ptr<Node>& parent) const {
    const CountedRef<HostDocument> document = findDocument(name);
    return document ? std::make_shared<KestrovaKCOMNodeCreator>(document, parent) : nullptr;
}

std::shared_ptr<PropertiesImpl::Node> PropertiesImpl::addNode(const std::string& name) {
    return rootOf(hostObject(set, &HostPropertySet::addItem, toHostText(name).c_str()));
}

CountedRef<HostDocument> PropertiesImpl::findDocument(const std::string& name) const {
    return hostObject(set, &HostPropertySet::getItem, toHostText(name).c_str());
}

}  // namespace Kestrova::Utils::Kcom
