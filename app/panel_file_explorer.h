#pragma once

#include "app/panel_view.h"
#include "skinner/control_frame.h"

#include <string>

// The file explorer panel, as far as playing and recording need it: the
// folder it stands in (the settings' explorer folder, or that of a file
// selected since), the current file, and playing it. Until there is a file
// list control it shows only the folder's name, in the place of "cmbFolder".
// A path the Document asks to be selected (a new recording) is selected,
// and a new explorer folder in the settings is gone to.
// Threads: the main thread only. Paths are expanded, with "/".
class PanelFileExplorer : public PanelView {
public:
    PanelFileExplorer(skinner::Container* container, Document& document);

    // A file: its folder becomes the panel's, and it the current item. A
    // folder: the panel's folder, with no current item. The views hear of it.
    void select(const std::wstring& path);
    const std::wstring& folder() const { return folder_; }
    // Empty when there is none.
    const std::wstring& current() const { return current_; }
    // Whether there is a current file to play, and a folder to record into.
    bool can_play() const;
    bool can_record() const { return !folder_.empty(); }
    // Plays the current file; false when there is none or it doesn't open.
    bool play();

    void on_document_changed(const ChangeFlags& changes) override;

    const skinner::ControlFrame& folder_line() const { return folder_line_; }

private:
    // select() without telling anyone.
    void go_to(const std::wstring& path);

    skinner::ControlFrame folder_line_;
    // The settings' folder as last seen, to notice a change.
    std::wstring settings_folder_;
    std::wstring folder_;
    std::wstring current_;
};
