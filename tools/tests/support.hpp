// Running the command, and VTK's own view of its files.
#pragma once

#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <functional>
#include <string>
#include <vector>

class vtkDataArray;
class vtkDataSet;
class vtkPolyData;

// ---- the command --------------------------------------------------------------------------------------------

// For a shell.
std::string command_path();

struct ran {
    int code = -1; // exit code; 128 + signal where one ended it
    std::string out, err;
};

struct surroundings {
    std::vector<std::string> set; // NAME=VALUE; displays are always taken away
    bool terminal = false;        // standard error is one
    std::string out;              // a file that standard output goes to
    std::string until;            // interrupt as soon as standard error holds this
    std::function<bool()> when;   // interrupt as soon as this holds
    int processes = 0;            // started by mpirun; 0: plainly
    int victim = -1;              // of these processes: has the signal once it has computed for half a second
    int signal_of_victim = 9;
    int most_memory = 0; // kB of data of each process; 0: no limit
};

// Whether groups of processes can be started here.
bool has_mpirun();

ran run(const std::vector<std::string> &arguments, const surroundings &around = {});

// The same, and the test fails where it does not exit with 0.
ran run_well(const std::vector<std::string> &arguments);

std::string shown(const ran &result);

// ---- files --------------------------------------------------------------------------------------------------

// A path in a folder of this process that is removed at its end.
std::string scratch(const std::string &name);
std::vector<std::string> files_in_scratch();
// Whether a file that was begun is among them.
bool leaves_parts();

// A data set of this name, of those that come with the project's other tests or out of scripts/sample-data;
// empty where it is not there.
std::string real_data(const std::string &name);
// The lines of figures.txt.
std::vector<std::string> figures();

// By the reader that VTK has for the ending.
vtkSmartPointer<vtkDataSet> read(const std::string &path);
vtkSmartPointer<vtkPolyData> read_surface(const std::string &path);
// By the writer for the ending.
void write(const std::string &path, vtkDataSet *data);

std::string bytes_of(const std::string &path);
void write_bytes(const std::string &path, const std::string &bytes);

// ---- figures ------------------------------------------------------------------------------------------------

double area_of(vtkPolyData *data);
double length_of(vtkPolyData *data);
double volume_of(vtkDataSet *data);

vtkDataArray *node_array(vtkDataSet *data, const std::string &name);
vtkDataArray *cell_array(vtkDataSet *data, const std::string &name);

// What VTK's contour filter makes of an array.
vtkSmartPointer<vtkPolyData> contour(vtkDataSet *data, const std::string &array,
                                     const std::vector<double> &levels);

// Adds a cell array "cell" that numbers the cells, and a node array "node".
void number_all(vtkDataSet *data);

// Adds a float node array.
void add_node_array(vtkDataSet *data, const std::string &name,
                    const std::function<double(const double *)> &value);

// Numbers of 0 to 1, the same on every machine.
class random_numbers {
  public:
    explicit random_numbers(unsigned seed) : state(seed) {}
    double next();

  private:
    unsigned long state;
};
