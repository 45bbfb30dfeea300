// VTK's complaints, kept instead of printed.
#pragma once

#include <vtkOutputWindow.h>

#include <string>
#include <vector>

class vtk_messages : public vtkOutputWindow {
  public:
    static vtk_messages *New();
    vtkTypeMacro(vtk_messages, vtkOutputWindow);

    // Takes the place of VTK's own window, for good.
    static void install();
    // The complaints since the last call, the first lines of each, and none kept.
    static std::vector<std::string> take_errors();
    static std::vector<std::string> take_warnings();

    void DisplayText(const char *) override {}
    void DisplayDebugText(const char *) override {}
    void DisplayErrorText(const char *text) override { errors.push_back(text); }
    void DisplayWarningText(const char *text) override { warnings.push_back(text); }
    void DisplayGenericWarningText(const char *text) override { warnings.push_back(text); }

  private:
    std::vector<std::string> errors, warnings;
};
