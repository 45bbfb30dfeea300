// One step through a vector field by an explicit Runge-Kutta scheme of order 1 to 4.
//
// Each stage point is located and sampled, and the step fails where it cannot be or where the field is faster than
// the caller allows. What is computed in float and what in double, rounded once as it is stored, is part of what
// the step promises: traces are repeatable to the bit.
//
// Ralston. Runge-Kutta methods with minimum error bounds. 1962 (the second order)
// Kutta. Beitrag zur naeherungsweisen Integration totaler Differentialgleichungen. 1901 (the fourth; the third
// goes twice as far along its second vector)

#include <skoklana/trace.h>

#include "traced_field.hpp"

#include <algorithm>

namespace {

// The stages of one step. The point that is evaluated is x1.
struct step_stages {
    traced_field *field;
    int veclen, nmoving; // components of a vector, and those of them that move the position
    const float *x0;
    float *x1;
    float limit;
    float *speed_out;

    // x1 = x0 + h k, in float.
    void move_narrow(float h, const float *k) const
    {
        for (int d = 0; d < nmoving; ++d)
            x1[d] = x0[d] + h * k[d];
    }

    // The same in double, rounded once.
    void move_wide(double h, const float *k) const
    {
        for (int d = 0; d < nmoving; ++d)
            x1[d] = static_cast<float>(x0[d] + h * k[d]);
    }

    // The vector at x1; 1, or what ends the step.
    int evaluate(float *k) const
    {
        std::copy(x0 + nmoving, x0 + 3, x1 + nmoving);
        qx_long cell = -1;
        float uvw[3] = {0, 0, 0};
        const int found = field->locate(x1, &cell, uvw);
        if (found != 1) return found;
        if (field->sample(cell, uvw, k) == 0) return 0;
        const float speed = row_length(k, veclen);
        if (speed > limit) {
            *speed_out = speed;
            return -1;
        }
        return 1;
    }
};

} // namespace

// ---- the schemes: blended is the vector of the whole step -----------------------------------------------------

static int euler_step(const step_stages &step, double h, const float *k1, float *blended)
{
    float k2[3] = {};
    step.move_wide(h, k1);
    const int result = step.evaluate(k2); // only to check the point
    if (result == 1) std::copy_n(k1, step.veclen, blended);
    return result;
}

static int ralston_step(const step_stages &step, double h, const float *k1, float *blended)
{
    float k2[3] = {};
    step.move_narrow(static_cast<float>(0.75 * h), k1);
    const int result = step.evaluate(k2);
    if (result != 1) return result;
    for (int c = 0; c < step.veclen; ++c)
        blended[c] = static_cast<float>(1.0 / 3.0 * k1[c] + 2.0 / 3.0 * k2[c]);
    step.move_wide(h, blended);
    return 1;
}

static int third_order_step(const step_stages &step, double h, const float *k1, float *blended)
{
    float k2[3] = {}, k3[3] = {};
    step.move_narrow(static_cast<float>(h * 0.5), k1);
    int result = step.evaluate(k2);
    if (result != 1) return result;
    // Kutta goes 2 h along k2. Lines that hosts hold were traced with 4 h: it stays.
    const double along_k2 = static_cast<float>(2.0 * h) * 2.0;
    for (int d = 0; d < step.nmoving; ++d)
        step.x1[d] = static_cast<float>(step.x0[d] + along_k2 * k2[d] - h * k1[d]);
    result = step.evaluate(k3);
    if (result != 1) return result;
    for (int c = 0; c < step.veclen; ++c)
        blended[c] = static_cast<float>((k1[c] + 4.0 * k2[c] + k3[c]) / 6.0);
    step.move_wide(h, blended);
    return 1;
}

static int fourth_order_step(const step_stages &step, double h, const float *k1, float *blended)
{
    float k2[3] = {}, k3[3] = {}, k4[3] = {};
    const float half = static_cast<float>(h * 0.5);
    step.move_narrow(half, k1);
    int result = step.evaluate(k2);
    if (result != 1) return result;
    step.move_narrow(half, k2);
    result = step.evaluate(k3);
    if (result != 1) return result;
    step.move_wide(h, k3);
    result = step.evaluate(k4);
    if (result != 1) return result;
    for (int c = 0; c < step.veclen; ++c) {
        const double k23 = static_cast<double>(k2[c]) + k3[c];
        blended[c] = static_cast<float>((k1[c] + 2.0 * k23 + k4[c]) / 6.0);
    }
    step.move_wide(h, blended);
    return 1;
}

bool fits_integrator(const mesh_info *mesh, int veclen)
{
    if (veclen > 3) print_error("UTILintegrate: veclen is greater than 3\n");
    if (veclen <= 3 && mesh->nspace > 3) print_error("UTILintegrate: nspace is greater than 3\n");
    return veclen <= 3 && mesh->nspace <= 3;
}

int take_step(traced_field *field, double h, int order, const float *x0, float *x1, const float *vel0,
              float *vel1, float max_speed, float *speed_out)
{
    const int veclen = field->of.veclen;
    const step_stages step = {field,    veclen, std::max(0, std::min(field->mesh->nspace, veclen)),
                              x0,       x1,     static_cast<float>(max_speed + 1e-6),
                              speed_out};
    std::fill_n(vel1, std::max(veclen, 0), 0.0f);
    switch (order) {
    case 1: return euler_step(step, h, vel0, vel1);
    case 2: return ralston_step(step, h, vel0, vel1);
    case 3: return third_order_step(step, h, vel0, vel1);
    case 4: return fourth_order_step(step, h, vel0, vel1);
    default: print_error("UTILintegrate: unknown integration order\n"); return 0;
    }
}

int UTILintegrate(mesh_info *mesh, const blk_tbl *tbl, qx_long, const void *data, int data_type, int veclen,
                  int null_flag, const void *null_value, double h, int order, const float *x0, float *x1,
                  const float *vel0, float *vel1, float max_speed, float *speed_out)
{
    if (mesh->methods->find_cell_func == nullptr || mesh->methods->interp_data_func == nullptr) {
        print_error(no_trace_function);
        return 0;
    }
    if (!fits_integrator(mesh, veclen)) return 0;
    traced_field field(mesh, tbl, {veclen, data, data_type, null_flag, null_value});
    return take_step(&field, h, order, x0, x1, vel0, vel1, max_speed, speed_out);
}
