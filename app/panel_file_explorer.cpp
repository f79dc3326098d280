#include "app/panel_file_explorer.h"

#include "os/file.h"
#include "os/path.h"

PanelFileExplorer::PanelFileExplorer(skinner::Container* container, Document& document)
    : PanelView(container, L"PanelFileExplorer", document), folder_line_(&inner(), L"cmbFolder")
{
    settings_folder_ = document_.settings().explorer_folder;
    go_to(settings_folder_);
}

void PanelFileExplorer::select(const std::wstring& path)
{
    go_to(path);
    ChangeFlags state;
    state.state = true;
    changed(state);
}

void PanelFileExplorer::go_to(const std::wstring& path)
{
    const std::wstring normal = path.empty() ? path : os::normalize_path(path);
    const os::FileAttributes at(normal);
    if (at.exists() && !at.is_folder) {
        folder_ = os::strip_trailing_separator(os::folder_of(normal));
        current_ = normal;
    } else {
        folder_ = normal;
        current_.clear();
    }
    folder_line_.set_text(os::file_name_of(folder_));
}

bool PanelFileExplorer::can_play() const
{
    if (current_.empty())
        return false;
    const os::FileAttributes at(current_);
    return at.exists() && !at.is_folder;
}

bool PanelFileExplorer::play()
{
    return can_play() && document_.play_file(current_);
}

void PanelFileExplorer::on_document_changed(const ChangeFlags& changes)
{
    const bool could_play = can_play();
    const bool could_record = can_record();
    if (document_.settings().explorer_folder != settings_folder_) {
        settings_folder_ = document_.settings().explorer_folder;
        go_to(settings_folder_);
    }
    if (!changes.select_path.empty())
        go_to(changes.select_path);
    // The views told before this one showed the buttons for the old item.
    if (can_play() != could_play || can_record() != could_record) {
        ChangeFlags state;
        state.state = true;
        changed(state);
    }
}
