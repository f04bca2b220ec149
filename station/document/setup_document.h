#pragma once

#include "station/document/setup_element.h"

namespace station {

/// A setup document of the station: a root and the direction of the work. Elements of one document
/// may move to another. A value that equals its default isn't kept.
///
/// On the host's thread only.
class SetupDocument final : public Counted<HostDocument> {
  public:
    explicit SetupDocument(bool forWriting) : writing(forWriting) {}

    /// Empty in a new document.
    const CountedRef<SetupElement>& getRoot() const { return root; }

    HostResult GetRootElement(HostElement** result) override;
    /// Null takes the root away. What hangs in a tree can't be a root.
    HostResult SetRootElement(HostElement* element) override;
    HostResult CreateElement(const wchar_t* name, const wchar_t* text,
                             HostElement** element) override;
    HostResult WriteValue(HostElement* element, const wchar_t* key, const wchar_t* value,
                          const wchar_t* defaultValue) override;
    HostResult ReadValue(HostElement* element, const wchar_t* key, std::wstring* value,
                         const wchar_t* defaultValue) override;
    HostResult GetMode(std::int32_t* mode) override;
    HostResult SetMode(HostBool forWriting) override;

  private:
    CountedRef<SetupElement> root;
    bool writing;
};

class SetupDocumentFactory final : public Counted<HostDocumentFactory> {
  public:
    HostResult createDocument(HostBool writing, HostDocument** document) override;
};

}  // namespace station
