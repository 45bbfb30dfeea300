// What has to be done before the first use of VTK.
#pragma once

// Keeps VTK's complaints for messages.hpp instead of printing them.
void start_vtk();
