// What cameras publish: the ends of their topics, and messages.
const RULES = "onvif-ej/RuleEngine/";
export const LINE = `${RULES}LineDetector/Crossed/&V/A/CrossLine-C0`;
export const COUNTER = `${RULES}CountAggregation/Counter/&V/A/CrossLine-C0`;
export const AREA = `${RULES}FieldDetector/ObjectsInside/&V/A/ObjectDetection-O0`;
export const TAMPER = "onvif-ej/VideoSource/GlobalSceneChange/AnalyticsService/&V";
export const FRAME = "onvif-mj/VideoAnalytics/P/od";
export const AVAILABLE = "va/available";

export const utc = time => new Date(time).toISOString();
export const event = (Data, time = Date.now()) => ({ UtcTime: utc(time), Source: {}, Data });
export const inside = (isInside, time) => event({ IsInside: isInside }, time);
export const online = (time = Date.now()) => ({ State: "online", Since: utc(time), Version: "1" });

export const line = (crossing, ...points) => ({
  Kind: "line", Number: 0, Rule: "CrossLine-C0", Crossing: crossing, Direction: -1, Used: true,
  Points: points });
export const area = (left, top, right, bottom) => ({
  Kind: "area", Number: 0, Rule: "ObjectDetection-O0", Type: 1, Used: true,
  Points: [[left, top], [left, bottom], [right, bottom], [right, top]] });
export const SCENE = {
  Frame: { Width: 1920, Height: 1080 }, Directions: { "to left": 2, "to right": 1, "both": 0 },
  Shapes: [line("both", [4000, 0], [5000, 9999]), area(6000, 5000, 9000, 9000)],
};

export const object = (number, [left, top, right, bottom], type = "Moving") => ({
  "@ObjectId": number, Appearance: { Class: { Type: [type] }, Shape: {
    BoundingBox: { "@left": left, "@top": top, "@right": right, "@bottom": bottom },
    CenterOfGravity: { "@x": (left + right) / 2, "@y": (top + bottom) / 2 } } },
});
export const frameOf = (objects, [width, height] = [1920, 1080], time = Date.now()) => ({ Frame: [{
  "@UtcTime": utc(time), "@Source": "od", Object: objects,
  Transformation: { Translate: { "@x": -1, "@y": 1 },
                    Scale: { "@x": 2 / width, "@y": -2 / height } },
}] });

// So many people who walk to and fro.
export function frame(count = 3) {
  const walked = Date.now() / 8000;
  return frameOf(Array.from({ length: count }, (_, i) => {
    const x = Math.round(1920 * (.1 + .8 * Math.abs((walked + i / count) % 2 - 1)));
    const y = 200 + i * 197 % 700;
    return object(i, [x - 40, y - 90, x + 40, y + 90]);
  }));
}
