#include "plot.hpp"

#include "picture.hpp"

#include <vtkDataObject.h>
#include <vtkDoubleArray.h>
#include <vtkFieldData.h>
#include <vtkNew.h>
#include <vtkProperty2D.h>
#include <vtkRenderer.h>
#include <vtkTextProperty.h>
#include <vtkXYPlotActor.h>

#include <algorithm>
#include <cmath>

namespace {

vtkSmartPointer<vtkDataObject> columns(const std::vector<double> &x, const std::vector<double> &y)
{
    auto data = vtkSmartPointer<vtkDataObject>::New();
    vtkNew<vtkFieldData> fields;
    for (const auto *values : {&x, &y}) {
        vtkNew<vtkDoubleArray> column;
        column->SetName(values == &x ? "x" : "y");
        for (const double value : *values)
            column->InsertNextValue(value);
        fields->AddArray(column);
    }
    data->SetFieldData(fields);
    return data;
}

void set_range(const std::vector<double> &a, const std::vector<double> &b, double *range)
{
    range[0] = HUGE_VAL;
    range[1] = -HUGE_VAL;
    for (const auto *values : {&a, &b})
        for (const double value : *values) {
            range[0] = std::min(range[0], value);
            range[1] = std::max(range[1], value);
        }
    const double margin =
        range[1] > range[0] ? 0.05 * (range[1] - range[0]) : std::max(1e-3 * std::fabs(range[0]), 1e-3);
    range[0] -= margin;
    range[1] += margin;
}

} // namespace

void write_plot(const std::string &path, const plot &what)
{
    vtkNew<vtkXYPlotActor> actor;
    const struct {
        const std::vector<double> &x, &y;
        double colour[3];
        bool dots;
    } series[2] = {{what.curve_x, what.curve_y, {0.80, 0.25, 0.10}, false},
                   {what.x, what.y, {0.10, 0.30, 0.60}, true}};
    actor->SetXValuesToValue();
    actor->SetDataObjectPlotModeToColumns();
    for (int s = 0; s < 2; ++s) {
        actor->AddDataObjectInput(columns(series[s].x, series[s].y));
        actor->SetDataObjectXComponent(s, 0);
        actor->SetDataObjectYComponent(s, 1);
        actor->SetPlotColor(s, series[s].colour[0], series[s].colour[1], series[s].colour[2]);
        actor->SetPlotLines(s, series[s].dots ? 0 : 1);
        actor->SetPlotPoints(s, series[s].dots ? 1 : 0);
    }
    actor->PlotCurveLinesOn();
    actor->PlotCurvePointsOn();
    double range[2];
    set_range(what.x, what.curve_x, range);
    actor->SetXRange(range);
    set_range(what.y, what.curve_y, range);
    actor->SetYRange(range);
    actor->SetXTitle(what.x_name.c_str());
    actor->SetYTitle(what.y_name.c_str());
    actor->SetTitle("");
    actor->LegendOff();
    actor->GetPositionCoordinate()->SetValue(0.02, 0.02, 0);
    actor->GetPosition2Coordinate()->SetValue(0.96, 0.96, 0);
    actor->GetProperty()->SetColor(0.15, 0.15, 0.15);
    actor->GetProperty()->SetLineWidth(2);
    actor->GetProperty()->SetPointSize(7);
    for (vtkTextProperty *text : {actor->GetAxisTitleTextProperty(), actor->GetAxisLabelTextProperty()}) {
        text->SetColor(0.15, 0.15, 0.15);
        text->ShadowOff();
        text->ItalicOff();
        text->BoldOff();
    }
    write_scene(path, {}, [&](vtkRenderer *scene) { scene->AddActor2D(actor); });
}
