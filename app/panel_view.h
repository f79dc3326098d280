#pragma once

#include "app/document.h"
#include "skinner/control_panel.h"

// The common ground of the main window's panels: a skin panel that is also
// a view of the Document. A control event calls a Document setter and tells
// the views; on_document_changed sets the controls from the Document.
// Threads: the main thread only. The Document outlives the panel.
class PanelView : public skinner::ControlPanel, public Document::View {
public:
    PanelView(skinner::Container* container, const std::wstring& name, Document& document)
        : ControlPanel(container, name), document_(document)
    {
    }

protected:
    // The user changed something: every view hears of it.
    void changed(const ChangeFlags& changes = {}) { document_.notify_views(changes); }

    Document& document_;
};
