#pragma once

#include "platform/ne3_val.h"

// What object detection prints of the blocks it sends, on standard output.

void od_print_old(const ne3_val_od_ctrl &ctrl); // as the library had it

void od_print_mask(int number, const ne3_val_od_polygon &mask);
void od_print_det_mask(int number, const ne3_val_od_polygon &mask);
void od_print_dynamic_init(const ne3_val_od_obj_init &block);
void od_print_dynamic_set(const ne3_val_od_obj_set &block);
void od_print_static_init(const ne3_val_od_obj_init &block);
void od_print_static_set(const ne3_val_od_obj_set &block);
void od_print_vmf(const ne3_val_od_vmf &block);
