// The camera looks down on the box from a corner; at flat data it looks straight. The picture is drawn at
// twice its size and averaged, which smooths edges and lines whatever the driver can do.
#include "picture.hpp"

#include "failure.hpp"
#include "messages.hpp"
#include "offscreen.hpp"
#include "write.hpp"

#include <vtkActor.h>
#include <vtkCamera.h>
#include <vtkCellArray.h>
#include <vtkCellData.h>
#include <vtkColorTransferFunction.h>
#include <vtkDataArray.h>
#include <vtkFloatArray.h>
#include <vtkGenericOpenGLRenderWindow.h>
#include <vtkGeometryFilter.h>
#include <vtkImageData.h>
#include <vtkLightKit.h>
#include <vtkMatrix4x4.h>
#include <vtkNew.h>
#include <vtkPNGWriter.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>
#include <vtkScalarBarActor.h>
#include <vtkSmartPointer.h>
#include <vtkTextActor.h>
#include <vtkTextProperty.h>
#include <vtkUnsignedCharArray.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

static const int oversampling = 2;

// From blue over grey to red, never dark and never glaring, so that shading stays visible on every colour.
// Moreland. Diverging color maps for scientific visualization. 2009
static vtkSmartPointer<vtkColorTransferFunction> colours_between(double lo, double hi)
{
    auto colours = vtkSmartPointer<vtkColorTransferFunction>::New();
    colours->SetColorSpaceToDiverging();
    colours->AddRGBPoint(lo, 0.230, 0.299, 0.754);
    colours->AddRGBPoint(hi, 0.706, 0.016, 0.150);
    return colours;
}

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

static vtkSmartPointer<vtkActor> actor_of(vtkPolyData *data)
{
    vtkNew<vtkPolyDataMapper> mapper;
    mapper->SetInputData(data);
    mapper->ScalarVisibilityOff();
    auto actor = vtkSmartPointer<vtkActor>::New();
    actor->SetMapper(mapper);
    return actor;
}

static vtkSmartPointer<vtkActor> outline_of(const double *box)
{
    vtkNew<vtkPoints> corners;
    vtkNew<vtkCellArray> edges;
    for (int corner = 0; corner < 8; ++corner) {
        corners->InsertNextPoint(box[corner & 1], box[2 + (corner >> 1 & 1)], box[4 + (corner >> 2)]);
        for (const int axis : {1, 2, 4})
            if ((corner & axis) == 0) edges->InsertNextCell({corner, corner | axis});
    }
    vtkNew<vtkPolyData> outline;
    outline->SetPoints(corners);
    outline->SetLines(edges);
    auto actor = actor_of(outline);
    actor->GetProperty()->SetColor(0.25, 0.25, 0.28);
    actor->GetProperty()->SetLineWidth(1.2f * oversampling);
    actor->GetProperty()->LightingOff();
    return actor;
}

// One colour a band, in equal steps whatever their widths.
static vtkSmartPointer<vtkColorTransferFunction> stepped_colours(const std::vector<double> &limits)
{
    auto stepped = vtkSmartPointer<vtkColorTransferFunction>::New();
    const size_t nbands = limits.size() - 1;
    const auto smooth = colours_between(0, static_cast<double>(std::max<size_t>(nbands - 1, 1)));
    for (size_t band = 0; band < nbands; ++band) {
        double rgb[3];
        smooth->GetColor(static_cast<double>(band), rgb);
        const double end = limits[band + 1];
        stepped->AddRGBPoint(limits[band], rgb[0], rgb[1], rgb[2]);
        // bands are half open, but for the last
        stepped->AddRGBPoint(band + 1 < nbands ? std::nextafter(end, limits[band]) : end, rgb[0], rgb[1],
                             rgb[2]);
    }
    return stepped;
}

// Colours by an array of one component, or by the length of its rows.
static vtkSmartPointer<vtkColorTransferFunction> colours_of(vtkDataArray *array,
                                                            const std::vector<double> &limits)
{
    const int component = array->GetNumberOfComponents() > 1 ? -1 : 0;
    double range[2];
    array->GetFiniteRange(range, component);
    if (!(range[0] < range[1])) range[1] = range[0] + std::max(1e-6, 1e-6 * std::abs(range[0]));
    auto colours = limits.size() > 1 ? stepped_colours(limits) : colours_between(range[0], range[1]);
    if (component < 0) colours->SetVectorModeToMagnitude();
    return colours;
}

static void set_text(vtkTextProperty *text)
{
    text->SetColor(0.1, 0.1, 0.12);
    text->SetFontSize(16 * oversampling);
    text->BoldOff();
    text->ItalicOff();
    text->ShadowOff();
}

static void colour(vtkPolyDataMapper *mapper, vtkColorTransferFunction *colours, vtkDataArray *array,
                   bool cells)
{
    mapper->SetLookupTable(colours);
    if (cells)
        mapper->SetScalarModeToUseCellFieldData();
    else
        mapper->SetScalarModeToUsePointFieldData();
    mapper->SelectColorArray(array->GetName());
    mapper->InterpolateScalarsBeforeMappingOn();
    mapper->ScalarVisibilityOn();
}

// The bar stands in a renderer of its own, right of the scene.
static void add_bar(vtkRenderer *renderer, vtkColorTransferFunction *colours, vtkDataArray *array, int width,
                    int height)
{
    vtkNew<vtkScalarBarActor> bar;
    bar->SetLookupTable(colours);
    bar->SetNumberOfLabels(5);
    bar->SetLabelFormat("%.4g");
    bar->GetPositionCoordinate()->SetCoordinateSystemToNormalizedViewport();
    bar->SetPosition(0.1, 0.15);
    bar->SetWidth(0.75);
    bar->SetHeight(0.65);
    bar->SetBarRatio(0.3);
    bar->UnconstrainedFontSizeOn();
    bar->SetTextPad(6 * oversampling);
    set_text(bar->GetLabelTextProperty());
    renderer->AddActor2D(bar);

    vtkNew<vtkTextActor> title;
    const std::string name =
        std::string(array->GetName()) + (array->GetNumberOfComponents() > 1 ? "\n(length)" : "");
    title->SetInput(name.c_str());
    set_text(title->GetTextProperty());
    title->GetTextProperty()->SetJustificationToRight();
    title->SetPosition(width - 14 * oversampling, height * 0.83);
    renderer->AddActor2D(title);
}

// Turns the camera so that all of the box is seen, as large as it fits.
static void fit(vtkRenderer *renderer, const double *box, double aspect)
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
        const double half = std::max(hi[0] - lo[0], hi[1] - lo[1]) / 2;
        const double *old = camera->GetWindowCenter();
        camera->SetWindowCenter((old[0] + (lo[0] + hi[0]) / 2) * 0.93 / half,
                                (old[1] + (lo[1] + hi[1]) / 2) * 0.93 / half);
        camera->Zoom(0.93 / half);
    }
}

static void place_camera(vtkRenderer *renderer, const double *box, double aspect)
{
    double size[3], middle[3];
    for (int d = 0; d < 3; ++d) {
        size[d] = box[2 * d + 1] - box[2 * d];
        middle[d] = (box[2 * d] + box[2 * d + 1]) / 2;
    }
    const double longest = std::max({size[0], size[1], size[2]});
    double from[3] = {-0.55, -1, 0.55}, up[3] = {0, 0, 1};
    for (int d = 0; d < 3; ++d) { // flat data: from straight ahead, x to the right where there is x
        if (size[d] > 1e-6 * longest) continue;
        for (int e = 0; e < 3; ++e) {
            from[e] = e == d ? (d == 1 ? -1 : 1) : 0;
            up[e] = e == (d == 2 ? 1 : 2) ? 1 : 0;
        }
        break;
    }
    vtkCamera *camera = renderer->GetActiveCamera();
    camera->SetFocalPoint(middle);
    camera->SetPosition(middle[0] + from[0], middle[1] + from[1], middle[2] + from[2]);
    camera->SetViewUp(up);
    camera->SetViewAngle(25);
    fit(renderer, box, aspect);
}

// What is seen of a data set: itself where it is polygonal, else its flat cells, lines and skin.
static vtkSmartPointer<vtkPolyData> seen_of(vtkDataSet *data)
{
    if (auto *poly = vtkPolyData::SafeDownCast(data)) return poly;
    vtkNew<vtkGeometryFilter> skin;
    skin->SetInputData(data);
    skin->Update();
    return skin->GetOutput();
}

// Some cells of data as a piece of its own, over the nodes of all: numbers first on of lines or polygons.
static vtkSmartPointer<vtkPolyData> piece_of(vtkPolyData *data, vtkIdType first, vtkIdType n, bool lines)
{
    vtkCellArray *from = lines ? data->GetLines() : data->GetPolys();
    vtkNew<vtkCellArray> cells;
    vtkIdType count;
    const vtkIdType *corners;
    for (vtkIdType cell = first; cell < first + n; ++cell) {
        from->GetCellAtId(cell, count, corners);
        cells->InsertNextCell(count, corners);
    }
    auto piece = vtkSmartPointer<vtkPolyData>::New();
    piece->SetPoints(data->GetPoints());
    piece->GetPointData()->ShallowCopy(data->GetPointData());
    if (lines)
        piece->SetLines(cells);
    else
        piece->SetPolys(cells);
    const vtkIdType row = data->GetNumberOfVerts() + (lines ? 0 : data->GetNumberOfLines()) + first;
    piece->GetCellData()->CopyAllocate(data->GetCellData(), n);
    piece->GetCellData()->CopyData(data->GetCellData(), 0, n, row);
    return piece;
}

// The triangles of each level as a surface, and the lines as one more piece.
static std::vector<vtkSmartPointer<vtkPolyData>> pieces_of(vtkPolyData *data,
                                                           const std::vector<int64_t> &triangles)
{
    if (triangles.empty()) return {data};
    std::vector<vtkSmartPointer<vtkPolyData>> pieces;
    vtkIdType first = 0;
    for (const int64_t n : triangles) {
        if (n > 0) pieces.push_back(piece_of(data, first, n, false));
        first += n;
    }
    if (data->GetNumberOfLines() > 0) pieces.push_back(piece_of(data, 0, data->GetNumberOfLines(), true));
    return pieces;
}

static double box_length(vtkPolyData *piece)
{
    double box[6];
    piece->GetCellsBounds(box);
    return std::hypot(box[1] - box[0], box[3] - box[2], box[5] - box[4]);
}

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

static void draw(const std::string &path, const drawing &options)
{
    const auto data = seen_of(options.data);
    const int width = options.width * oversampling, height = options.height * oversampling;
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

    vtkDataSetAttributes *arrays = data->GetPointData();
    if (options.colour_cells) arrays = data->GetCellData();
    vtkDataArray *array = arrays->GetArray(options.colour_by.c_str());
    if (data->GetNumberOfPoints() == 0) array = nullptr;
    const double scene_share = array != nullptr ? 0.86 : 1;
    vtkNew<vtkRenderer> scene, side;
    scene->SetViewport(0, 0, scene_share, 1);
    side->SetViewport(scene_share, 0, 1, 1);
    for (vtkRenderer *renderer : {scene.Get(), side.Get()}) {
        renderer->SetBackground(1, 1, 1);
        window->AddRenderer(renderer);
    }
    vtkNew<vtkLightKit> lights; // from several sides: no side is black
    lights->SetKeyLightIntensity(0.85);
    lights->AddLightsToRenderer(scene);

    vtkNew<vtkPolyData> shaded;
    shaded->ShallowCopy(data);
    if (data->GetNumberOfPolys() > 0) shaded->GetPointData()->SetNormals(normals_of(data));
    vtkSmartPointer<vtkColorTransferFunction> colours;
    if (array != nullptr) {
        colours = colours_of(array, options.limits);
        add_bar(side, colours, array, static_cast<int>(width * (1 - scene_share)), height);
    }
    auto pieces = pieces_of(shaded, options.level_triangles);
    std::sort(pieces.begin(), pieces.end(),
              [](vtkPolyData *a, vtkPolyData *b) { return box_length(a) < box_length(b); });
    for (size_t i = 0; i < pieces.size(); ++i) {
        const auto actor = actor_of(pieces[i]);
        vtkProperty *look = actor->GetProperty();
        look->SetColor(0.42, 0.56, 0.72);
        look->SetInterpolationToPhong();
        look->SetAmbient(0.12);
        look->SetDiffuse(0.85);
        look->SetSpecular(0.2);
        look->SetSpecularPower(25);
        look->SetLineWidth(1.6f * oversampling);
        if (pieces[i]->GetNumberOfPolys() == 0)
            look->LightingOff();
        else if (box_length(pieces[i]) > 1.02 * box_length(pieces[0]))
            look->SetOpacity(0.35);
        if (array != nullptr)
            colour(vtkPolyDataMapper::SafeDownCast(actor->GetMapper()), colours, array, options.colour_cells);
        scene->AddActor(actor);
    }
    scene->AddActor(outline_of(options.box));
    scene->SetUseDepthPeeling(1);
    scene->SetMaximumNumberOfPeels(12);
    place_camera(scene, options.box, scene_share * width / height);

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
        !averaged(drawn, options.width, options.height, image))
        throw failure("the picture came out empty; the OpenGL driver did not draw");

    vtkNew<vtkPNGWriter> writer;
    writer->SetFileName(path.c_str());
    writer->SetInputData(image);
    writer->Write();
    if (writer->GetErrorCode() != 0 || !vtk_messages::take_errors().empty())
        throw failure("the disk may be full");
    window->Finalize();
}

void write_picture(const std::string &path, const drawing &what)
{
    write_beside(path, [&](const std::string &beside) { draw(beside, what); });
}
