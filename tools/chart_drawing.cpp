#include "chart_drawing.hpp"

#include "picture.hpp"
#include "write.hpp"

#include <vtkActor.h>
#include <vtkCamera.h>
#include <vtkCellArray.h>
#include <vtkCoordinate.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderer.h>
#include <vtkTextActor.h>
#include <vtkTextProperty.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr double page = 540; // of vector graphics, points
constexpr double letter_drop =
    0.36; // from the middle of digits to the line that they stand on, by their size

struct line_style {
    double red, green, blue;
    double width; // by the page
};

line_style style_of(chart_part part)
{
    switch (part) {
    case chart_part::grid: return {0.45, 0.55, 0.68, 0.0009};
    case chart_part::frame: return {0.10, 0.15, 0.25, 0.0020};
    default: return {0.80, 0.20, 0.10, 0.0036};
    }
}

__attribute__((format(printf, 2, 3))) void print(std::string *out, const char *format, ...)
{
    char text[256];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    *out += text;
}

// Of a text in Helvetica, by its size.
double width_of(const std::string &text)
{
    double width = 0;
    for (const char c : text)
        width += c == '.' ? 0.278 : c == '-' ? 0.333 : 0.556;
    return width;
}

struct page_place {
    double x, y;
};

page_place on_page(const chart_drawing &what, double x, double y)
{
    return {(x / what.reach + 1) * page / 2, (y / what.reach + 1) * page / 2};
}

} // namespace

void write_svg(const std::string &path, const chart_drawing &what)
{
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    print(&out,
          "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%gpt\" height=\"%gpt\" viewBox=\"0 0 %g %g\">\n",
          page, page, page, page);
    print(&out, "<rect width=\"%g\" height=\"%g\" fill=\"white\"/>\n", page, page);
    for (const chart_part part : {chart_part::grid, chart_part::frame, chart_part::curve}) {
        const line_style style = style_of(part);
        print(&out,
              "<g fill=\"none\" stroke=\"rgb(%.0f,%.0f,%.0f)\" stroke-width=\"%.3f\" "
              "stroke-linejoin=\"round\" stroke-linecap=\"round\">\n",
              255 * style.red, 255 * style.green, 255 * style.blue, style.width * page);
        for (const chart_line &line : what.lines) {
            if (line.part != part) continue;
            out += "<polyline points=\"";
            for (size_t i = 0; i + 1 < line.xy.size(); i += 2) {
                const page_place at = on_page(what, line.xy[i], -line.xy[i + 1]);
                print(&out, "%s%.3f,%.3f", i == 0 ? "" : " ", at.x, at.y);
            }
            out += "\"/>\n";
        }
        out += "</g>\n";
    }
    out += "<g fill=\"black\" font-family=\"Helvetica,Arial,sans-serif\">\n";
    for (const chart_label &label : what.labels) {
        const page_place at = on_page(what, label.x, -label.y);
        const double size = label.size / what.reach * page / 2;
        print(&out,
              "<text transform=\"translate(%.3f,%.3f) rotate(%.3f)\" y=\"%.3f\" font-size=\"%.3f\" "
              "text-anchor=\"%s\">",
              at.x, at.y, -label.angle, letter_drop * size, size,
              label.anchor == chart_label::centred ? "middle" : "end");
        out += label.text + "</text>\n";
    }
    out += "</g>\n</svg>\n";
    write_text(path, out);
}

void write_pdf(const std::string &path, const chart_drawing &what)
{
    std::string content = "1 j 1 J\n";
    for (const chart_part part : {chart_part::grid, chart_part::frame, chart_part::curve}) {
        const line_style style = style_of(part);
        print(&content, "%.3f %.3f %.3f RG %.3f w\n", style.red, style.green, style.blue, style.width * page);
        for (const chart_line &line : what.lines) {
            if (line.part != part) continue;
            for (size_t i = 0; i + 1 < line.xy.size(); i += 2) {
                const page_place at = on_page(what, line.xy[i], line.xy[i + 1]);
                print(&content, "%.3f %.3f %s\n", at.x, at.y, i == 0 ? "m" : "l");
            }
            content += "S\n";
        }
    }
    content += "0 g\nBT\n";
    for (const chart_label &label : what.labels) {
        const page_place at = on_page(what, label.x, label.y);
        const double size = label.size / what.reach * page / 2;
        const double turn = label.angle * 3.14159265358979323846 / 180, c = std::cos(turn),
                     s = std::sin(turn);
        const double back = size * width_of(label.text) * (label.anchor == chart_label::centred ? 0.5 : 1);
        const double down = letter_drop * size;
        print(&content, "/F1 %.3f Tf %.5f %.5f %.5f %.5f %.3f %.3f Tm (", size, c, s, -s, c,
              at.x - back * c + down * s, at.y - back * s - down * c);
        content += label.text + ") Tj\n";
    }
    content += "ET\n";

    std::string out = "%PDF-1.4\n";
    std::vector<size_t> places;
    const auto add = [&](const std::string &object) {
        places.push_back(out.size());
        print(&out, "%zu 0 obj\n", places.size());
        out += object + "\nendobj\n";
    };
    std::string box;
    print(&box, "%g %g", page, page);
    add("<< /Type /Catalog /Pages 2 0 R >>");
    add("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    add("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + box +
        "] /Contents 4 0 R /Resources << /Font << /F1 5 0 R >> >> >>");
    add("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "endstream");
    add("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    const size_t table = out.size();
    print(&out, "xref\n0 %zu\n0000000000 65535 f \n", places.size() + 1);
    for (const size_t place : places)
        print(&out, "%010zu 00000 n \n", place);
    print(&out, "trailer\n<< /Size %zu /Root 1 0 R >>\nstartxref\n%zu\n%%%%EOF\n", places.size() + 1, table);
    write_text(path, out);
}

void write_chart_picture(const std::string &path, const chart_drawing &what, int pixels)
{
    picture_look look;
    look.width = look.height = pixels;
    write_scene(path, look, [&](vtkRenderer *scene) {
        for (const chart_part part : {chart_part::grid, chart_part::frame, chart_part::curve}) {
            vtkNew<vtkPoints> points;
            vtkNew<vtkCellArray> lines;
            for (const chart_line &line : what.lines) {
                if (line.part != part) continue;
                lines->InsertNextCell(static_cast<int>(line.xy.size() / 2));
                for (size_t i = 0; i + 1 < line.xy.size(); i += 2)
                    lines->InsertCellPoint(
                        points->InsertNextPoint(line.xy[i], line.xy[i + 1], 0.001 * static_cast<int>(part)));
            }
            vtkNew<vtkPolyData> data;
            data->SetPoints(points);
            data->SetLines(lines);
            vtkNew<vtkPolyDataMapper> mapper;
            mapper->SetInputData(data);
            vtkNew<vtkActor> actor;
            actor->SetMapper(mapper);
            const line_style style = style_of(part);
            actor->GetProperty()->SetColor(style.red, style.green, style.blue);
            actor->GetProperty()->LightingOff();
            actor->GetProperty()->SetLineWidth(static_cast<float>(std::max(1.0, style.width * pixels)));
            scene->AddActor(actor);
        }
        for (const chart_label &label : what.labels) {
            vtkNew<vtkTextActor> actor;
            actor->SetInput(label.text.c_str());
            actor->GetPositionCoordinate()->SetCoordinateSystemToWorld();
            actor->GetPositionCoordinate()->SetValue(label.x, label.y, 0);
            vtkTextProperty *text = actor->GetTextProperty();
            text->SetColor(0, 0, 0);
            text->SetOrientation(label.angle);
            text->SetFontSize(std::max(6, static_cast<int>(label.size / what.reach * pixels / 2)));
            text->SetVerticalJustificationToCentered();
            if (label.anchor == chart_label::centred)
                text->SetJustificationToCentered();
            else
                text->SetJustificationToRight();
            scene->AddActor2D(actor);
        }
        vtkCamera *camera = scene->GetActiveCamera();
        camera->ParallelProjectionOn();
        camera->SetFocalPoint(0, 0, 0);
        camera->SetPosition(0, 0, 5);
        camera->SetViewUp(0, 1, 0);
        camera->SetParallelScale(what.reach);
        camera->SetClippingRange(1, 10);
    });
}
