#include "messages.hpp"

#include <vtkLogger.h>
#include <vtkObjectFactory.h>

#include <utility>

vtkStandardNewMacro(vtk_messages);

static vtk_messages *installed;
static const size_t longest = 300;

void vtk_messages::install()
{
    vtkLogger::SetStderrVerbosity(vtkLogger::VERBOSITY_OFF); // prints what a window gets, too
    installed = vtk_messages::New();
    vtkOutputWindow::SetInstance(installed);
}

// "ERROR: In file.cxx, line 12\nclass (0x1234): text\n\n" becomes "text": places in VTK's sources and
// addresses mean nothing to a user.
static std::vector<std::string> plain(std::vector<std::string> texts)
{
    for (std::string &text : texts) {
        if (const size_t line = text.find('\n'); line != std::string::npos && text.find(", line ") < line)
            text.erase(0, line + 1);
        if (const size_t object = text.find("): "); object != std::string::npos && text.find("(0x") < object)
            text.erase(0, object + 3);
        for (size_t from = text.find("(0x"); from != std::string::npos; from = text.find("(0x", from)) {
            const size_t end = text.find(')', from);
            text.erase(from, end == std::string::npos ? end : end - from + 1);
        }
        while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
            text.pop_back();
        for (char &c : text) // it may quote the file, whatever that holds
            if (c < ' ' || c > '~') c = c == '\n' ? ' ' : '?';
        if (text.size() > longest) text.replace(longest, text.size(), " ...");
    }
    return texts;
}

std::vector<std::string> vtk_messages::take_errors()
{
    return plain(std::exchange(installed->errors, {}));
}

std::vector<std::string> vtk_messages::take_warnings()
{
    return plain(std::exchange(installed->warnings, {}));
}
