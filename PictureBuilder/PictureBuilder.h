#pragma once
namespace Vellum::PictureBuilder {
void registerKernels();
}
