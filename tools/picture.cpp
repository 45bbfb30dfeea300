// The camera looks down on the box from a corner; at flat data it looks straight, along parallel lines, and axes
// with numbers stand at two sides of the box. The picture is drawn at twice its size and averaged, which smooths
// edges and lines whatever the driver can do.
#include "picture.hpp"

#include "colours.hpp"
#include "failure.hpp"
#include "messages.hpp"
#include "offscreen.hpp"
#include "write.hpp"

#include <vtkActor.h>
#include <vtkActor2D.h>
#include <vtkCamera.h>
#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkColorTransferFunction.h>
#include <vtkDataArray.h>
#include <vtkDataSetSurfaceFilter.h>
#include <vtkFloatArray.h>
#include <vtkGenericOpenGLRenderWindow.h>
#include <vtkImageData.h>
#include <vtkJPEGWriter.h>
#include <vtkLightKit.h>
#include <vtkMatrix4x4.h>
#include <vtkNew.h>
#include <vtkPNGWriter.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkPolyDataMapper2D.h>
#include <vtkProperty.h>
#include <vtkProperty2D.h>
#include <vtkRenderer.h>
#include <vtkSmartPointer.h>
#include <vtkTextActor.h>
#include <vtkTextProperty.h>
#include <vtkTextRenderer.h>
#include <vtkUnsignedCharArray.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

static const int oversampling = 2;

// ---- pieces -------------------------------------------------------------------------------------------------

// A unit normal for each node: the sum of its polygons' normals, which weighs them by their area.
static vtkSmartPointer<vtkFloatArray> normals_of(vtkPolyData *data)
{
    const vtkIdType n = data->GetNumberOfPoints();
    auto normals = vtkSmartPointer<vtkFloatArray>::New();
    normals->SetNumberOfComponents(3);
    normals->SetNumberOfTuples(n);
    normals->FillValue(0);
    float *sum = normals->GetPointer(0);
    vtkIdType count;
    const vtkIdType *corner;
    vtkCellArray *polys = data->GetPolys();
    for (polys->InitTraversal(); polys->GetNextCell(count, corner) != 0;) {
        double p[3][3], cross[3] = {0, 0, 0};
        if (count < 3) continue;
        data->GetPoint(corner[0], p[0]);
        for (vtkIdType i = 1; i + 1 < count; ++i) {
            data->GetPoint(corner[i], p[1]);
            data->GetPoint(corner[i + 1], p[2]);
            for (int d = 0; d < 3; ++d) {
                const int e = (d + 1) % 3, f = (d + 2) % 3;
                cross[d] +=
                    (p[1][e] - p[0][e]) * (p[2][f] - p[0][f]) - (p[1][f] - p[0][f]) * (p[2][e] - p[0][e]);
            }
        }
        for (vtkIdType i = 0; i < count; ++i)
            for (int d = 0; d < 3; ++d)
                sum[corner[i] * 3 + d] += static_cast<float>(cross[d]);
    }
    for (vtkIdType node = 0; node < n; ++node) {
        float *v = sum + node * 3;
        const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        for (int d = 0; d < 3 && length > 0; ++d)
            v[d] /= length;
    }
    return normals;
}

// What is seen of a data set: itself where it is polygonal, else its flat cells, lines and skin.
static vtkSmartPointer<vtkPolyData> seen_of(vtkDataSet *data)
{
    auto seen = vtkSmartPointer<vtkPolyData>::New();
    if (auto *poly = vtkPolyData::SafeDownCast(data)) {
        seen->ShallowCopy(poly);
    } else {
        vtkNew<vtkDataSetSurfaceFilter> skin; // VTK 9.1's newer geometry filter was seen to crash
        skin->DelegationOff();
        skin->SetInputData(data);
        skin->Update();
        seen->ShallowCopy(skin->GetOutput());
    }
    if (seen->GetNumberOfPolys() > 0) seen->GetPointData()->SetNormals(normals_of(seen));
    return seen;
}

// Some of the polygons of data, over the nodes of all. levels: first and number of each run.
static vtkSmartPointer<vtkPolyData> polygons_of(vtkPolyData *data,
                                                const std::vector<std::pair<vtkIdType, vtkIdType>> &runs)
{
    auto piece = vtkSmartPointer<vtkPolyData>::New();
    piece->SetPoints(data->GetPoints());
    piece->GetPointData()->ShallowCopy(data->GetPointData());
    vtkIdType total = 0, filled = 0, count;
    for (const auto &run : runs)
        total += run.second;
    piece->GetCellData()->CopyAllocate(data->GetCellData(), total);
    const vtkIdType before = data->GetNumberOfVerts() + data->GetNumberOfLines();
    vtkNew<vtkCellArray> cells;
    const vtkIdType *corners;
    for (const auto &[first, n] : runs) {
        for (vtkIdType cell = first; cell < first + n; ++cell) {
            data->GetPolys()->GetCellAtId(cell, count, corners);
            cells->InsertNextCell(count, corners);
        }
        piece->GetCellData()->CopyData(data->GetCellData(), filled, n, before + first);
        filled += n;
    }
    piece->SetPolys(cells);
    return piece;
}

// The verts and lines of data.
static vtkSmartPointer<vtkPolyData> thin_cells_of(vtkPolyData *data)
{
    auto piece = vtkSmartPointer<vtkPolyData>::New();
    piece->SetPoints(data->GetPoints());
    piece->GetPointData()->ShallowCopy(data->GetPointData());
    piece->SetVerts(data->GetVerts());
    piece->SetLines(data->GetLines());
    const vtkIdType n = data->GetNumberOfVerts() + data->GetNumberOfLines();
    piece->GetCellData()->CopyAllocate(data->GetCellData(), n);
    piece->GetCellData()->CopyData(data->GetCellData(), 0, n, 0);
    return piece;
}

static double box_length(const double *box)
{
    return std::hypot(box[1] - box[0], box[3] - box[2], box[5] - box[4]);
}

namespace {

// The parts that data is drawn as.
struct scene_parts {
    vtkSmartPointer<vtkPolyData> solid, veil, thin; // veil: surfaces that others shine through
};

} // namespace

static double extent_of(vtkPolyData *data, vtkIdType first, vtkIdType n)
{
    double box[6] = {1e300, -1e300, 1e300, -1e300, 1e300, -1e300}, xyz[3];
    vtkIdType count;
    const vtkIdType *corners;
    for (vtkIdType cell = first; cell < first + n; ++cell) {
        data->GetPolys()->GetCellAtId(cell, count, corners);
        for (vtkIdType i = 0; i < count; ++i) {
            data->GetPoint(corners[i], xyz);
            for (int d = 0; d < 3; ++d) {
                box[2 * d] = std::min(box[2 * d], xyz[d]);
                box[2 * d + 1] = std::max(box[2 * d + 1], xyz[d]);
            }
        }
    }
    return box_length(box);
}

static scene_parts parts_of(vtkPolyData *data, const std::vector<int64_t> &level_triangles)
{
    scene_parts parts;
    if (data->GetNumberOfVerts() + data->GetNumberOfLines() > 0) parts.thin = thin_cells_of(data);
    struct surface {
        vtkIdType first, n;
        double extent;
    };
    std::vector<surface> surfaces;
    vtkIdType first = 0;
    for (const int64_t n : level_triangles) {
        if (n > 0) surfaces.push_back({first, n, extent_of(data, first, n)});
        first += n;
    }
    if (surfaces.size() < 2) {
        if (data->GetNumberOfPolys() > 0) parts.solid = polygons_of(data, {{0, data->GetNumberOfPolys()}});
        return parts;
    }
    // narrow ones come first, as blending goes by order
    std::sort(surfaces.begin(), surfaces.end(),
              [](const surface &a, const surface &b) { return a.extent < b.extent; });
    std::vector<std::pair<vtkIdType, vtkIdType>> solid, veil;
    for (const surface &one : surfaces)
        (one.extent > 1.02 * surfaces.front().extent ? veil : solid).emplace_back(one.first, one.n);
    parts.solid = polygons_of(data, solid);
    if (!veil.empty()) parts.veil = polygons_of(data, veil);
    return parts;
}

static vtkSmartPointer<vtkActor> actor_of(vtkPolyData *data)
{
    vtkNew<vtkPolyDataMapper> mapper;
    mapper->SetInputData(data);
    mapper->ScalarVisibilityOff();
    auto actor = vtkSmartPointer<vtkActor>::New();
    actor->SetMapper(mapper);
    vtkProperty *look = actor->GetProperty();
    look->SetColor(0.42, 0.56, 0.72);
    look->SetInterpolationToPhong();
    look->SetAmbient(0.12);
    look->SetDiffuse(0.85);
    look->SetSpecular(0.2);
    look->SetSpecularPower(25);
    look->SetLineWidth(1.6f * oversampling);
    look->SetPointSize(3.0f * oversampling);
    return actor;
}

static vtkSmartPointer<vtkActor> line_actor(vtkPoints *points, vtkCellArray *lines, double width)
{
    vtkNew<vtkPolyData> data;
    data->SetPoints(points);
    data->SetLines(lines);
    auto actor = actor_of(data);
    actor->GetProperty()->SetColor(0.25, 0.25, 0.28);
    actor->GetProperty()->SetLineWidth(static_cast<float>(width * oversampling));
    actor->GetProperty()->LightingOff();
    return actor;
}

static vtkSmartPointer<vtkActor> outline_of(const double *box)
{
    vtkNew<vtkPoints> corners;
    corners->SetDataTypeToDouble();
    vtkNew<vtkCellArray> edges;
    for (int corner = 0; corner < 8; ++corner) {
        corners->InsertNextPoint(box[corner & 1], box[2 + (corner >> 1 & 1)], box[4 + (corner >> 2)]);
        for (const int axis : {1, 2, 4})
            if ((corner & axis) == 0) edges->InsertNextCell({corner, corner | axis});
    }
    return line_actor(corners, edges, 1.2);
}

// ---- texts --------------------------------------------------------------------------------------------------

static vtkSmartPointer<vtkTextActor> text_actor(const std::string &text, int size)
{
    auto actor = vtkSmartPointer<vtkTextActor>::New();
    actor->SetInput(text.c_str());
    vtkTextProperty *look = actor->GetTextProperty();
    look->SetColor(0.1, 0.1, 0.12);
    look->SetFontSize(size);
    return actor;
}

namespace {

struct text_extent {
    int width = 0, height = 0;
};

} // namespace

static text_extent extent_of_text(const std::string &text, int size)
{
    const auto actor = text_actor(text, size);
    int box[4] = {0, 0, 0, 0};
    vtkTextRenderer::GetInstance()->GetBoundingBox(actor->GetTextProperty(), text, box, 72);
    return {box[1] - box[0] + 1, box[3] - box[2] + 1};
}

static void place_text(vtkRenderer *renderer, vtkTextActor *text, double x, double y)
{
    text->SetPosition(x, y);
    renderer->AddActor2D(text);
}

// Lines between pairs of pixels.
static void add_pixel_lines(vtkRenderer *renderer, const std::vector<double> &ends)
{
    vtkNew<vtkPoints> points;
    vtkNew<vtkCellArray> lines;
    for (size_t i = 0; i + 3 < ends.size(); i += 4) {
        const vtkIdType a = points->InsertNextPoint(ends[i], ends[i + 1], 0);
        const vtkIdType b = points->InsertNextPoint(ends[i + 2], ends[i + 3], 0);
        lines->InsertNextCell({a, b});
    }
    vtkNew<vtkPolyData> data;
    data->SetPoints(points);
    data->SetLines(lines);
    vtkNew<vtkPolyDataMapper2D> mapper;
    mapper->SetInputData(data);
    vtkNew<vtkActor2D> actor;
    actor->SetMapper(mapper);
    actor->GetProperty()->SetColor(0.25, 0.25, 0.28);
    actor->GetProperty()->SetLineWidth(1.2f * oversampling);
    renderer->AddActor2D(actor);
}

// ---- colours ------------------------------------------------------------------------------------------------

namespace {

// The colour bar and what the array is coloured by.
struct colouring {
    vtkSmartPointer<vtkColorTransferFunction> colours;
    double lo = 0, hi = 1;
    std::vector<double> labels;
    bool stepped = false;
    std::string title;
};

} // namespace

// By an array of one component, or by the length of its rows.
static colouring colouring_of(vtkDataArray *array, const drawing &what, const picture_look &look)
{
    colouring made;
    const int component = array->GetNumberOfComponents() > 1 ? -1 : 0;
    double range[2];
    array->GetFiniteRange(range, component);
    made.stepped = what.limits.size() > 1;
    if (made.stepped)
        made.labels = what.limits;
    else
        made.labels = what.levels;
    if (!made.labels.empty()) {
        range[0] = *std::min_element(made.labels.begin(), made.labels.end());
        range[1] = *std::max_element(made.labels.begin(), made.labels.end());
    }
    if (!(range[0] < range[1])) range[1] = range[0] + std::max(1e-6, 1e-6 * std::abs(range[0]));
    made.lo = range[0];
    made.hi = range[1];
    if (made.labels.empty()) made.labels = round_ticks(made.lo, made.hi, 6);
    std::sort(made.labels.begin(), made.labels.end());
    made.colours = made.stepped ? stepped_colours(look.colours, what.limits)
                                : colours_between(look.colours, made.lo, made.hi);
    made.colours->SetNanColor(0.45, 0.45, 0.45); // no value: not one of the colours between
    if (component < 0) made.colours->SetVectorModeToMagnitude();
    made.title = what.title.empty() ? array->GetName() : what.title;
    if (component < 0) made.title += " (length)";
    return made;
}

static void colour(vtkActor *actor, const colouring &by, vtkDataArray *array, bool cells)
{
    auto *mapper = vtkPolyDataMapper::SafeDownCast(actor->GetMapper());
    mapper->SetLookupTable(by.colours);
    if (cells)
        mapper->SetScalarModeToUseCellFieldData();
    else
        mapper->SetScalarModeToUsePointFieldData();
    mapper->SelectColorArray(array->GetName());
    mapper->InterpolateScalarsBeforeMappingOn();
    mapper->ScalarVisibilityOn();
}

namespace {

// The place and size of all that belongs to the colour bar, in pixels of its column.
struct bar_layout {
    int size = 0; // of texts
    int strip = 0, gap = 0;
    std::vector<std::string> labels;
    std::vector<std::string> title;
    bool upright = true; // the title stands over the bar; else along it
    int title_size = 0;
    int width = 0;
};

} // namespace

static int widest(const std::vector<std::string> &texts, int size)
{
    int width = 0;
    for (const std::string &text : texts)
        width = std::max(width, extent_of_text(text, size).width);
    return width;
}

// Long titles are broken into up to three lines over the bar, or stand along it, smaller and at last shortened.
static bar_layout layout_of(const colouring &by, int size, int height)
{
    bar_layout bar;
    bar.size = bar.title_size = size;
    bar.strip = 2 * size;
    bar.gap = size / 2;
    bar.labels = tick_texts(by.labels);
    bar.width = std::max(bar.strip + widest(bar.labels, size) + 4 * bar.gap, 8 * size);
    bar.title = wrapped(by.title, 14);
    if (bar.title.size() <= 3 && widest(bar.title, size) <= 11 * size) {
        bar.width = std::max(bar.width, widest(bar.title, size) + 2 * bar.gap);
        return bar;
    }
    bar.upright = false;
    std::string line = by.title;
    const int room = height * 8 / 10;
    while (bar.title_size > size * 2 / 3 && extent_of_text(line, bar.title_size).width > room)
        --bar.title_size;
    for (size_t keep = line.size(); extent_of_text(line, bar.title_size).width > room && keep > 8; keep -= 2)
        line = by.title.substr(0, keep / 2) + "..." + by.title.substr(by.title.size() - keep / 2);
    bar.title = {line};
    bar.width += extent_of_text(line, bar.title_size).height + 2 * bar.gap;
    return bar;
}

// The strip with a colour a row.
static void add_strip(vtkRenderer *renderer, const colouring &by, double x, double y, double width,
                      double height)
{
    const int rows = 256;
    vtkNew<vtkPoints> points;
    vtkNew<vtkCellArray> cells;
    vtkNew<vtkUnsignedCharArray> rgb;
    rgb->SetNumberOfComponents(3);
    const vtkIdType nlimits = static_cast<vtkIdType>(by.labels.size());
    const vtkIdType n = by.stepped ? nlimits - 1 : rows;
    for (vtkIdType i = 0; i <= n; ++i) {
        const double share = by.stepped ? (by.labels[static_cast<size_t>(i)] - by.lo) / (by.hi - by.lo)
                                        : static_cast<double>(i) / static_cast<double>(n);
        points->InsertNextPoint(x, y + height * share, 0);
        points->InsertNextPoint(x + width, y + height * share, 0);
        if (i == n) break;
        cells->InsertNextCell({2 * i, 2 * i + 1, 2 * i + 3, 2 * i + 2});
        const double middle = by.stepped ? by.labels[static_cast<size_t>(i)]
                                         : by.lo + (by.hi - by.lo) * (static_cast<double>(i) + 0.5) / rows;
        double colour[3];
        by.colours->GetColor(middle, colour);
        for (const double value : colour)
            rgb->InsertNextValue(static_cast<unsigned char>(std::lround(255 * value)));
    }
    vtkNew<vtkPolyData> data;
    data->SetPoints(points);
    data->SetPolys(cells);
    data->GetCellData()->SetScalars(rgb);
    vtkNew<vtkPolyDataMapper2D> mapper;
    mapper->SetInputData(data);
    mapper->SetScalarModeToUseCellData();
    vtkNew<vtkActor2D> actor;
    actor->SetMapper(mapper);
    renderer->AddActor2D(actor);
}

// The bar stands in a renderer of its own, right of the scene.
static void add_bar(vtkRenderer *renderer, const colouring &by, const bar_layout &bar, int height)
{
    const double y = height * 0.1, length = height * (bar.upright ? 0.68 : 0.8);
    double x = bar.gap;
    if (bar.upright) {
        double top = y + length + bar.size * (1.4 * static_cast<double>(bar.title.size()) + 0.9);
        for (const std::string &line : bar.title) {
            top -= bar.size * 1.4;
            place_text(renderer, text_actor(line, bar.title_size), x, top);
        }
    } else {
        const auto title = text_actor(bar.title[0], bar.title_size);
        title->SetOrientation(90);
        const text_extent extent = extent_of_text(bar.title[0], bar.title_size);
        x += extent.height + bar.gap;
        place_text(renderer, title, x - bar.gap, y + (length - extent.width) / 2);
    }
    add_strip(renderer, by, x, y, bar.strip, length);
    std::vector<double> marks;
    double free_from = -1e30; // labels that would stand in each other are left out
    for (size_t i = 0; i < by.labels.size(); ++i) {
        const double at = y + length * (by.labels[i] - by.lo) / (by.hi - by.lo);
        marks.insert(marks.end(), {x + bar.strip, at, x + bar.strip + bar.gap * 0.6, at});
        if (at < free_from) continue;
        const auto label = text_actor(bar.labels[i], bar.size);
        label->GetTextProperty()->SetVerticalJustificationToCentered();
        place_text(renderer, label, x + bar.strip + bar.gap, at);
        free_from = at + bar.size * 1.25;
    }
    add_pixel_lines(renderer, marks);
}

// ---- camera -------------------------------------------------------------------------------------------------

namespace {

// What of the view the box fills: x and y from -1 to 1.
struct frame {
    double lo[2], hi[2];
};

} // namespace

// Turns the camera so that all of the box is seen, as large as the frame allows.
static void fit(vtkRenderer *renderer, const double *box, double aspect, const frame &into)
{
    vtkCamera *camera = renderer->GetActiveCamera();
    renderer->ResetCamera(box);
    for (int turn = 0; turn < 4; ++turn) { // a change of the angle changes the perspective a little
        renderer->ResetCameraClippingRange(box[0], box[1], box[2], box[3], box[4], box[5]);
        double lo[2] = {1e30, 1e30}, hi[2] = {-1e30, -1e30};
        for (int corner = 0; corner < 8; ++corner) {
            const double at[4] = {box[corner & 1], box[2 + (corner >> 1 & 1)], box[4 + (corner >> 2)], 1};
            double seen[4];
            camera->GetCompositeProjectionTransformMatrix(aspect, -1, 1)->MultiplyPoint(at, seen);
            for (int d = 0; d < 2; ++d) {
                lo[d] = std::min(lo[d], seen[d] / seen[3]);
                hi[d] = std::max(hi[d], seen[d] / seen[3]);
            }
        }
        double zoom = 1e30, centre[2];
        for (int d = 0; d < 2; ++d)
            if (hi[d] > lo[d]) zoom = std::min(zoom, (into.hi[d] - into.lo[d]) / (hi[d] - lo[d]));
        if (zoom > 1e29) return;
        for (int d = 0; d < 2; ++d)
            centre[d] =
                (camera->GetWindowCenter()[d] + (lo[d] + hi[d]) / 2) * zoom - (into.lo[d] + into.hi[d]) / 2;
        camera->SetWindowCenter(centre[0], centre[1]);
        camera->Zoom(zoom);
    }
}

namespace {

// The axis that the camera looks along, or -1.
struct sight {
    int axis = -1;
    double side = 1;        // the camera stands at the upper end of the axis
    bool flat = false;      // seen straight along an axis
    bool flat_data = false; // and there is nothing along it
};

} // namespace

static sight sight_of(const double *box, const std::string &view)
{
    sight made;
    double size[3];
    for (int d = 0; d < 3; ++d)
        size[d] = box[2 * d + 1] - box[2 * d];
    for (int d = 2; d >= 0 && made.axis < 0; --d)
        if (size[d] <= 1e-6 * std::max({size[0], size[1], size[2]})) made.axis = d;
    made.flat = made.flat_data = made.axis >= 0;
    if (made.axis == 1) made.side = -1; // x to the right
    if (view == "iso") {
        made.axis = -1;
        made.flat = false;
    } else if (!view.empty()) {
        made.axis = view.back() - 'x';
        made.side = view[0] == '-' ? 1 : -1; // looking along an axis is looking up it
        made.flat = true;
    }
    return made;
}

static void place_camera(vtkRenderer *renderer, const double *box, const sight &seen)
{
    double middle[3], from[3] = {-0.55, -1, 0.55}, up[3] = {0, 0, 1};
    for (int d = 0; d < 3; ++d) {
        middle[d] = (box[2 * d] + box[2 * d + 1]) / 2;
        if (seen.axis < 0) continue;
        from[d] = d == seen.axis ? seen.side : 0;
        up[d] = d == (seen.axis == 2 ? 1 : 2) ? 1 : 0;
    }
    vtkCamera *camera = renderer->GetActiveCamera();
    camera->SetFocalPoint(middle);
    camera->SetPosition(middle[0] + from[0], middle[1] + from[1], middle[2] + from[2]);
    camera->SetViewUp(up);
    camera->SetViewAngle(25);
    camera->SetParallelProjection(seen.flat ? 1 : 0);
}

// ---- axes ---------------------------------------------------------------------------------------------------

// Where a point is in the picture, in pixels of the renderer.
static void to_pixels(vtkRenderer *renderer, double aspect, int width, int height, const double *xyz,
                      double *pixel)
{
    const double at[4] = {xyz[0], xyz[1], xyz[2], 1};
    double seen[4];
    renderer->GetActiveCamera()
        ->GetCompositeProjectionTransformMatrix(aspect, -1, 1)
        ->MultiplyPoint(at, seen);
    pixel[0] = (seen[0] / seen[3] + 1) / 2 * width;
    pixel[1] = (seen[1] / seen[3] + 1) / 2 * height;
}

// Numbers along the lower and the left side of the box, and a bar of a round length.
static void add_axes(vtkRenderer *renderer, const double *box, const sight &seen, int width, int height,
                     int size)
{
    const double aspect = static_cast<double>(width) / height;
    static const char *const names[] = {"x", "y", "z"};
    double corner[2][3], origin[2], end[2];
    for (int d = 0; d < 3; ++d)
        for (const int far : {0, 1})
            corner[far][d] = box[2 * d + far];
    std::vector<double> marks;
    for (int d = 0; d < 3; ++d) {
        if (d == seen.axis) continue;
        double xyz[3] = {corner[0][0], corner[0][1], corner[0][2]};
        to_pixels(renderer, aspect, width, height, xyz, origin);
        xyz[d] = corner[1][d];
        to_pixels(renderer, aspect, width, height, xyz, end);
        const bool across = std::abs(end[0] - origin[0]) > std::abs(end[1] - origin[1]);
        const double length = std::hypot(end[0] - origin[0], end[1] - origin[1]);
        if (length < 8 * size) continue; // no room for two numbers
        const auto ticks =
            round_ticks(box[2 * d], box[2 * d + 1],
                        std::clamp(static_cast<int>(length / (size * (across ? 7 : 4))), 2, 8));
        const auto texts = tick_texts(ticks);
        // the side that is lower, or further left, in the picture
        double low[2];
        xyz[0] = corner[0][0], xyz[1] = corner[0][1], xyz[2] = corner[0][2];
        for (int e = 0; e < 3; ++e) {
            if (e == d || e == seen.axis) continue;
            double other[3] = {xyz[0], xyz[1], xyz[2]};
            other[e] = corner[1][e];
            to_pixels(renderer, aspect, width, height, other, low);
            if (low[across ? 1 : 0] < origin[across ? 1 : 0]) xyz[e] = other[e];
        }
        for (size_t i = 0; i < ticks.size(); ++i) {
            xyz[d] = ticks[i];
            double at[2];
            to_pixels(renderer, aspect, width, height, xyz, at);
            const double tick = size * 0.4;
            const auto text = text_actor(texts[i], size);
            if (across) {
                marks.insert(marks.end(), {at[0], at[1], at[0], at[1] - tick});
                text->GetTextProperty()->SetJustificationToCentered();
                text->GetTextProperty()->SetVerticalJustificationToTop();
                place_text(renderer, text, at[0], at[1] - 1.4 * tick);
            } else {
                marks.insert(marks.end(), {at[0], at[1], at[0] - tick, at[1]});
                text->GetTextProperty()->SetJustificationToRight();
                text->GetTextProperty()->SetVerticalJustificationToCentered();
                place_text(renderer, text, at[0] - 1.4 * tick, at[1]);
            }
        }
        xyz[d] = (corner[0][d] + corner[1][d]) / 2;
        double at[2];
        to_pixels(renderer, aspect, width, height, xyz, at);
        const auto name = text_actor(names[d], size);
        name->GetTextProperty()->ItalicOn();
        if (across) {
            place_text(renderer, name, at[0], std::max(at[1] - 3.6 * size, 0.1 * size));
        } else {
            name->GetTextProperty()->SetJustificationToRight();
            place_text(renderer, name, at[0] - 1.2 * size - widest(texts, size), at[1] + 0.8 * size);
        }
        if (!across) continue;
        // the bar: a fifth of the way or less
        const double bar = round_below((box[2 * d + 1] - box[2 * d]) / 4);
        const double pixels = bar / (box[2 * d + 1] - box[2 * d]) * length;
        const double right = width - 1.5 * size, y = 1.2 * size;
        marks.insert(marks.end(),
                     {right - pixels, y, right, y, right - pixels, y - 0.3 * size, right - pixels,
                      y + 0.3 * size, right, y - 0.3 * size, right, y + 0.3 * size});
        const auto text = text_actor(tick_texts({bar})[0], size);
        text->GetTextProperty()->SetJustificationToRight();
        text->GetTextProperty()->SetVerticalJustificationToCentered();
        place_text(renderer, text, right - pixels - 0.6 * size, y);
    }
    add_pixel_lines(renderer, marks);
}

// A small cross of axes with their names, turned as the scene is.
static void add_orientation(vtkRenderer *mark, vtkRenderer *scene, int size)
{
    static const double colours[3][3] = {{0.75, 0.15, 0.12}, {0.15, 0.5, 0.15}, {0.15, 0.25, 0.75}};
    static const char *const names[] = {"x", "y", "z"};
    vtkCamera *from = scene->GetActiveCamera(), *camera = mark->GetActiveCamera();
    double direction[3], up[3];
    from->GetDirectionOfProjection(direction);
    from->GetViewUp(up);
    camera->SetFocalPoint(0, 0, 0);
    camera->SetPosition(-4 * direction[0], -4 * direction[1], -4 * direction[2]);
    camera->SetViewUp(up);
    camera->ParallelProjectionOn();
    camera->SetParallelScale(1.9);
    camera->SetClippingRange(1, 8);
    int *pixels = mark->GetSize();
    for (int d = 0; d < 3; ++d) {
        vtkNew<vtkPoints> points;
        vtkNew<vtkCellArray> lines;
        double end[3] = {0, 0, 0}, at[2];
        points->InsertNextPoint(end);
        end[d] = 1;
        points->InsertNextPoint(end);
        lines->InsertNextCell({0, 1});
        const auto actor = line_actor(points, lines, 2.5);
        actor->GetProperty()->SetColor(colours[d][0], colours[d][1], colours[d][2]);
        mark->AddActor(actor);
        end[d] = 1.25;
        to_pixels(mark, static_cast<double>(pixels[0]) / pixels[1], pixels[0], pixels[1], end, at);
        const auto name = text_actor(names[d], size);
        name->GetTextProperty()->SetJustificationToCentered();
        name->GetTextProperty()->SetVerticalJustificationToCentered();
        name->GetTextProperty()->SetColor(colours[d][0], colours[d][1], colours[d][2]);
        place_text(mark, name, at[0], at[1]);
    }
}

// ---- drawing ------------------------------------------------------------------------------------------------

// The average of each square of drawn pixels. False: every one of them has the same colour.
static bool averaged(const std::vector<unsigned char> &drawn, int width, int height, vtkImageData *image)
{
    image->SetDimensions(width, height, 1);
    image->AllocateScalars(VTK_UNSIGNED_CHAR, 3);
    auto *to = static_cast<unsigned char *>(image->GetScalarPointer());
    const size_t n = oversampling, rows = static_cast<size_t>(height), columns = static_cast<size_t>(width);
    for (size_t y = 0; y < rows; ++y)
        for (size_t x = 0; x < columns; ++x)
            for (size_t c = 0; c < 3; ++c) {
                size_t sum = n * n / 2;
                for (size_t s = 0; s < n * n; ++s)
                    sum += drawn[((y * n + s / n) * columns * n + x * n + s % n) * 3 + c];
                *to++ = static_cast<unsigned char>(sum / (n * n));
            }
    return std::any_of(drawn.begin(), drawn.end(), [&](unsigned char value) { return value != drawn[0]; });
}

static void add_data(vtkRenderer *scene, vtkPolyData *data, const drawing &what, const colouring *by,
                     vtkDataArray *array)
{
    const scene_parts parts = parts_of(data, what.level_triangles);
    for (vtkPolyData *part : {parts.solid.Get(), parts.veil.Get(), parts.thin.Get()}) {
        if (part == nullptr) continue;
        const auto actor = actor_of(part);
        if (part == parts.thin) actor->GetProperty()->LightingOff();
        if (what.sides && part != parts.thin) {
            actor->GetProperty()->EdgeVisibilityOn();
            actor->GetProperty()->SetEdgeColor(0.15, 0.15, 0.2);
            actor->GetProperty()->SetLineWidth(0.6f * oversampling);
        }
        if (part == parts.veil) {
            actor->GetProperty()->SetOpacity(0.35);
            scene->SetUseDepthPeeling(1);
            scene->SetMaximumNumberOfPeels(8);
        }
        if (by != nullptr) colour(actor, *by, array, what.colour_cells);
        scene->AddActor(actor);
    }
    scene->AddActor(outline_of(what.box));
}

// Through memory: libraries under VTK's writers complain on standard error.
static void save(const std::string &path, vtkImageData *image)
{
    vtkNew<vtkPNGWriter> png;
    vtkNew<vtkJPEGWriter> jpeg;
    jpeg->SetQuality(93);
    const bool is_png = std::filesystem::path(path).extension() == ".png";
    vtkImageWriter *writer = is_png ? static_cast<vtkImageWriter *>(png.Get()) : jpeg.Get();
    png->WriteToMemoryOn();
    jpeg->WriteToMemoryOn();
    writer->SetInputData(image);
    writer->Write();
    vtkUnsignedCharArray *bytes = is_png ? png->GetResult() : jpeg->GetResult();
    if (bytes == nullptr || writer->GetErrorCode() != 0 || !vtk_messages::take_errors().empty())
        throw failure("the writer of this format failed");
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes->GetPointer(0)), bytes->GetNumberOfValues());
    file.close();
    if (!file) throw failure("it could not be written to the end");
}

// A window that nobody sees: fill puts renderers into it, and what they draw becomes the file.
static void draw_window(const std::string &path, const picture_look &look,
                        const std::function<void(vtkGenericOpenGLRenderWindow *)> &fill)
{
    const int width = look.width * oversampling, height = look.height * oversampling;
    const offscreen_context context;
    vtkNew<vtkGenericOpenGLRenderWindow> window;
    window->SetOwnContext(0);
    window->SetReadyForRendering(true);
    window->SetIsCurrent(true);
    window->SetMapped(1);
    window->SetSupportsOpenGL(1);
    window->SetMultiSamples(0);
    window->SetSize(width, height);
    window->OpenGLInit();

    fill(window);

    vtk_messages::take_errors();
    window->Render();
    vtkNew<vtkUnsignedCharArray> pixels;
    window->GetPixelData(0, 0, width - 1, height - 1, 0, pixels.Get(), 0);
    const auto errors = vtk_messages::take_errors();
    if (!errors.empty()) throw failure("the renderer says: " + errors.front());
    std::vector<unsigned char> drawn(pixels->GetPointer(0),
                                     pixels->GetPointer(0) + pixels->GetNumberOfValues());
    vtkNew<vtkImageData> image;
    if (drawn.size() != static_cast<size_t>(width) * static_cast<size_t>(height) * 3 ||
        !averaged(drawn, look.width, look.height, image))
        throw failure("the picture came out empty; the OpenGL driver did not draw");
    save(path, image);
    window->Finalize();
}

static void fill_window(vtkGenericOpenGLRenderWindow *window, const drawing &what, const picture_look &look)
{
    const int width = look.width * oversampling, height = look.height * oversampling;
    const int size =
        std::clamp(static_cast<int>(16 * std::min(look.width / 1200.0, look.height / 900.0)), 9, 40) *
        oversampling;
    const auto data = seen_of(what.data);
    vtkDataSetAttributes *arrays = data->GetPointData();
    if (what.colour_cells) arrays = data->GetCellData();
    vtkDataArray *array = data->GetNumberOfPoints() > 0 ? arrays->GetArray(what.colour_by.c_str()) : nullptr;
    colouring by;
    bar_layout bar;
    if (array != nullptr) {
        by = colouring_of(array, what, look);
        bar = layout_of(by, size, height);
    }
    const int scene_width = std::max(width - bar.width, width / 3);
    const double share = static_cast<double>(scene_width) / width,
                 aspect = static_cast<double>(scene_width) / height;

    vtkNew<vtkRenderer> scene, side, mark;
    scene->SetViewport(0, 0, share, 1);
    side->SetViewport(share, 0, 1, 1);
    for (vtkRenderer *renderer : {scene.Get(), side.Get()}) {
        renderer->SetBackground(1, 1, 1);
        window->AddRenderer(renderer);
    }
    vtkNew<vtkLightKit> lights; // from several sides: no side is black
    lights->SetKeyLightIntensity(0.85);
    lights->AddLightsToRenderer(scene);
    add_data(scene, data, what, array != nullptr ? &by : nullptr, array);
    if (array != nullptr) add_bar(side, by, bar, height);

    const sight seen = sight_of(what.box, look.view);
    place_camera(scene, what.box, seen);
    const double text_x = 2.0 * size / scene_width, text_y = 2.0 * size / height;
    if (seen.flat) {
        fit(scene, what.box, aspect,
            {{-1 + 7 * text_x, -1 + 4.5 * text_y}, {1 - 1.5 * text_x, 1 - 1.2 * text_y}});
        add_axes(scene, what.box, seen, scene_width, height, size);
    } else {
        fit(scene, what.box, aspect, {{-0.93, -0.93}, {0.93, 0.93}});
    }
    if (!seen.flat_data) {
        const double edge = (seen.flat ? 5.0 : 7.0) * size;
        window->SetNumberOfLayers(2);
        mark->SetLayer(1);
        mark->InteractiveOff();
        mark->SetViewport(0, 0, edge / width, edge / height);
        window->AddRenderer(mark);
        add_orientation(mark, scene, size);
    }
    scene->ResetCameraClippingRange(what.box[0], what.box[1], what.box[2], what.box[3], what.box[4],
                                    what.box[5]);
}

void write_picture(const std::string &path, const drawing &what, const picture_look &look)
{
    write_beside(path, [&](const std::string &beside) {
        draw_window(beside, look,
                    [&](vtkGenericOpenGLRenderWindow *window) { fill_window(window, what, look); });
    });
}

void write_scene(const std::string &path, const picture_look &look,
                 const std::function<void(vtkRenderer *)> &fill)
{
    write_beside(path, [&](const std::string &beside) {
        draw_window(beside, look, [&](vtkGenericOpenGLRenderWindow *window) {
            vtkNew<vtkRenderer> scene;
            scene->SetBackground(1, 1, 1);
            window->AddRenderer(scene);
            fill(scene);
        });
    });
}
