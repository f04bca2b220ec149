#pragma once

#include <memory>
#include <string>

#include "host/toolkit.h"
#include "station/toolkit/model/component.h"
#include "station/toolkit/model/window_content.h"

namespace station {

/// A window without its looks: what a plug-in fills with its XML. A toolkit derives from it and
/// shows the content.
///
/// The plug-in may hold it longer than the station does; so a station `close`s it when the user
/// does, after it has notified the plug-in.
class ToolkitWindow : public Component<Kestrova::Tessel::IWindow, Kestrova::Tessel::IContentControl,
                                       Kestrova::Tessel::IParentControl, Kestrova::Tessel::IControl,
                                       Kestrova::Tessel::IControlFactory> {
  public:
    /// Also finds `RuntimeLibrary`.
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override;

    HostResult setXml(RuntimeString* xml) override;
    HostResult findControl(RuntimeString* controlName,
                           Kestrova::Tessel::IControl** control) override;
    HostResult create(RuntimeString* typeName, RuntimeString* text,
                      Kestrova::Tessel::IComponent** component) override;

    /// Empties the window: its controls raise nothing any more.
    void close();
    /// Null before the first `setXml` and after `close`.
    const WindowElement* getContent() const { return content.get(); }

  protected:
    explicit ToolkitWindow(FailureSinkPtr failureSink);
    ~ToolkitWindow() override;

    /// The content is another one, or none: the old one is still there to be let go of. No view of
    /// a grid in it is called any more.
    virtual void onContentChanged() = 0;
    virtual CountedRef<ToolkitTimer> makeTimer() = 0;

  private:
    void replaceContent(std::unique_ptr<WindowElement> next);

    std::unique_ptr<WindowElement> content;
};

}  // namespace station
