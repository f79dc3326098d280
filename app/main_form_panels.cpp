#include "app/main_form.h"

const skinner::ControlPanel& MainForm::panel(int index) const
{
    const skinner::ControlPanel* panels[kPanels] = {&explorer_, &levels_, &equalizer_, &more_};
    return *panels[index];
}

void MainForm::show_panel()
{
    skinner::ControlPanel* panels[kPanels] = {&explorer_, &levels_, &equalizer_, &more_};
    for (int i = 0; i < kPanels; ++i)
        panels[i]->set_visible(i == mode_.state());
}
