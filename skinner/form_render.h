#pragma once

#include "skinner/form.h"

#include <memory>
#include <string>
#include <vector>

// A form built from the skin alone: every control of its item list made by
// its class name, for showing a skin's form before the code that owns it
// exists and for drawing it headless. Classes not built yet draw their
// "Normal" picture. Threads: the user-interface thread only.
namespace skinner {

class ClassFactoryForm : public Form {
public:
    ClassFactoryForm(Properties& properties, const std::wstring& name, Form* parent = nullptr,
                     Listener* listener = nullptr);
    ~ClassFactoryForm() override;
    // The skin's automatic panels are made anew on a refresh: the controls
    // built into them are made anew with them.
    void refresh() override;

private:
    // The items of the container's form, then those of every panel in it.
    void build_items(Container& container, int depth);
    void destroy_items();
    std::vector<std::unique_ptr<Control>> controls_;
};

// The control for a class name, null for the automatic kinds ("Auto.…"),
// which the container makes itself.
std::unique_ptr<Control> make_control_by_class(Container* container, const std::wstring& id,
                                               const std::wstring& class_name);

// Why `form` can't be built from the skin, or empty: checked before building,
// since the engine's own report of a missing form is fatal.
std::wstring check_form(Properties& properties, const std::wstring& form);

} // namespace skinner
