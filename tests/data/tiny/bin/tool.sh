#!/bin/sh
echo tiny
