#include "tests/support/gl_double.h"

#include <GL/glew.h>

#include <cstring>

namespace {

using kova::test::CallLog;
using kova::test::callText;

GLuint next_texture = 1;
GLuint next_buffer = 1;
GLenum glew_init_result = GLEW_OK;

template <typename... Arguments>
void record(const char* name, const Arguments&... arguments) {
    CallLog::instance().add(callText(name, arguments...));
}

std::vector<float> floats(const GLfloat* values, std::size_t count) {
    return std::vector<float>(values, values + count);
}

std::vector<unsigned char> bytes(const void* data, std::size_t count) {
    if (!data)
        return {};
    const auto* first = static_cast<const unsigned char*>(data);
    return std::vector<unsigned char>(first, first + count);
}

std::size_t channelsOf(GLenum format) {
    return format == GL_RGBA ? 4 : format == GL_RGB ? 3 : 1;
}

void genBuffers(GLsizei count, GLuint* names) {
    for (GLsizei i = 0; i < count; ++i) names[i] = next_buffer++;
    record("glGenBuffers", count);
}
void bindBuffer(GLenum target, GLuint name) {
    record("glBindBuffer", target, name);
}
void bufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) {
    record("glBufferData", target, size, data, usage);
}
void bufferSubData(GLenum target, GLintptr offset, GLsizeiptr size, const void* data) {
    CallLog::instance().add(callText("glBufferSubData", target, offset, size),
                            bytes(data, static_cast<std::size_t>(size)));
}
void deleteBuffers(GLsizei count, const GLuint* names) {
    record("glDeleteBuffers", count, names[0]);
}

}  // namespace

namespace kova::test {

void setGlewInitResult(unsigned int code) {
    glew_init_result = code;
}

void resetGlDouble() {
    next_texture = 1;
    next_buffer = 1;
    glew_init_result = GLEW_OK;
    CallLog::instance().clear();
}

}  // namespace kova::test

extern "C" {

PFNGLGENBUFFERSPROC __glewGenBuffers = genBuffers;
PFNGLBINDBUFFERPROC __glewBindBuffer = bindBuffer;
PFNGLBUFFERDATAPROC __glewBufferData = bufferData;
PFNGLBUFFERSUBDATAPROC __glewBufferSubData = bufferSubData;
PFNGLDELETEBUFFERSPROC __glewDeleteBuffers = deleteBuffers;

GLenum glewInit(void) {
    record("glewInit");
    return glew_init_result;
}
const GLubyte* glewGetString(GLenum name) {
    record("glewGetString", name);
    return reinterpret_cast<const GLubyte*>("2.2.0");
}
const GLubyte* glewGetErrorString(GLenum error) {
    record("glewGetErrorString", error);
    return reinterpret_cast<const GLubyte*>(error == GLEW_OK ? "No error" : "Scripted failure");
}

void glBegin(GLenum mode) {
    record("glBegin", mode);
}
void glEnd() {
    record("glEnd");
}
void glColor3f(GLfloat r, GLfloat g, GLfloat b) {
    record("glColor3f", r, g, b);
}
void glColor4ub(GLubyte r, GLubyte g, GLubyte b, GLubyte a) {
    record("glColor4ub", r, g, b, a);
}
void glVertex2f(GLfloat x, GLfloat y) {
    record("glVertex2f", x, y);
}
void glVertex3f(GLfloat x, GLfloat y, GLfloat z) {
    record("glVertex3f", x, y, z);
}
void glTexCoord2f(GLfloat s, GLfloat t) {
    record("glTexCoord2f", s, t);
}
void glNormal3fv(const GLfloat* v) {
    record("glNormal3fv", floats(v, 3));
}
void glLoadName(GLuint name) {
    record("glLoadName", name);
}
void glLineWidth(GLfloat width) {
    record("glLineWidth", width);
}
void glPointSize(GLfloat size) {
    record("glPointSize", size);
}
void glLineStipple(GLint factor, GLushort pattern) {
    record("glLineStipple", factor, pattern);
}

void glEnable(GLenum capability) {
    record("glEnable", capability);
}
void glDisable(GLenum capability) {
    record("glDisable", capability);
}
void glDrawBuffer(GLenum mode) {
    record("glDrawBuffer", mode);
}
void glClear(GLbitfield mask) {
    record("glClear", mask);
}
void glClearColor(GLclampf r, GLclampf g, GLclampf b, GLclampf a) {
    record("glClearColor", r, g, b, a);
}
void glViewport(GLint x, GLint y, GLsizei width, GLsizei height) {
    record("glViewport", x, y, width, height);
}

void glMatrixMode(GLenum mode) {
    record("glMatrixMode", mode);
}
void glLoadIdentity() {
    record("glLoadIdentity");
}
void glLoadMatrixf(const GLfloat* m) {
    record("glLoadMatrixf", floats(m, 16));
}
void glMultMatrixf(const GLfloat* m) {
    record("glMultMatrixf", floats(m, 16));
}
void glPushMatrix() {
    record("glPushMatrix");
}
void glPopMatrix() {
    record("glPopMatrix");
}
void glTranslatef(GLfloat x, GLfloat y, GLfloat z) {
    record("glTranslatef", x, y, z);
}
void glRotated(GLdouble angle, GLdouble x, GLdouble y, GLdouble z) {
    record("glRotated", angle, x, y, z);
}

void glMaterialfv(GLenum face, GLenum name, const GLfloat* v) {
    record("glMaterialfv", face, name, floats(v, name == GL_SHININESS ? 1 : 4));
}
void glLightfv(GLenum light, GLenum name, const GLfloat* v) {
    record("glLightfv", light, name, floats(v, 4));
}
void glLightModelfv(GLenum name, const GLfloat* v) {
    record("glLightModelfv", name, floats(v, 4));
}

void glGenTextures(GLsizei count, GLuint* names) {
    for (GLsizei i = 0; i < count; ++i) names[i] = next_texture++;
    record("glGenTextures", count);
}
void glDeleteTextures(GLsizei count, const GLuint* names) {
    record("glDeleteTextures", count, names[0]);
}
void glBindTexture(GLenum target, GLuint name) {
    record("glBindTexture", target, name);
}
void glTexParameteri(GLenum target, GLenum name, GLint value) {
    record("glTexParameteri", target, name, value);
}
void glTexImage2D(GLenum target, GLint level, GLint internal, GLsizei width, GLsizei height,
                  GLint border, GLenum format, GLenum type, const void* data) {
    const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    CallLog::instance().add(callText("glTexImage2D", target, level, internal, width, height, border,
                                     format, type, data ? "data" : "null"),
                            bytes(data, count * channelsOf(format)));
}

void glEnableClientState(GLenum array) {
    record("glEnableClientState", array);
}
void glDisableClientState(GLenum array) {
    record("glDisableClientState", array);
}
void glColorPointer(GLint size, GLenum type, GLsizei stride, const void* pointer) {
    record("glColorPointer", size, type, stride, reinterpret_cast<std::uintptr_t>(pointer));
}
void glVertexPointer(GLint size, GLenum type, GLsizei stride, const void* pointer) {
    record("glVertexPointer", size, type, stride, reinterpret_cast<std::uintptr_t>(pointer));
}
void glDrawArrays(GLenum mode, GLint first, GLsizei count) {
    record("glDrawArrays", mode, first, count);
}

}  // extern "C"
