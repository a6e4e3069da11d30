#include "support/OwnedImage.h"

void releaseImage(IplImage** image) {
  if (*image) cvReleaseImage(image);
  *image = nullptr;
}
