#pragma once

/* An integer rectangle; right and bottom lie outside it. */
typedef struct hwc_rect {
    int left;
    int top;
    int right;
    int bottom;
} hwc_rect_t;
